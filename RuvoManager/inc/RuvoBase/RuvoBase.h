#pragma once
// A guard as well: the precompiled applet prefix holds the installation's copy of this header
// and the applet includes its own copy beside its sources.
#ifndef RUVO_BASE_H_INCLUDED
#define RUVO_BASE_H_INCLUDED
// Module-side base of every applet: the service tables, the event kinds that init() registers,
// and the module's initialisation entry. Copied beside the applet's sources before a compile.

#include <cstddef>
#include <cstdint>

#include "applet_global_def.h"
// Handlers are exported by name (__declspec(dllexport)); everything else in the module stays hidden.
#include "ruvo_export.h"

enum RuvoEventKind {
    ruvo_prev_event,
    ruvo_post_event,
    ruvo_on_can_pre_send,
    ruvo_on_can_send,
    ruvo_on_can_recv,
    ruvo_on_key_pressed,
};

// Records what the applet's init() binds; the manager dispatches by exported name.
void registerFunc(void (*handler)(void), RuvoEventKind kind, std::nullptr_t);
void registerFunc(void (*handler)(PKelnCan), RuvoEventKind kind, unsigned long long canId);
void registerFunc(void (*handler)(s32), RuvoEventKind kind, const char* keys);

// The applet's initialisation entry: a 64-byte record holding the applet's name.
struct KelnCompltInfo {
    char name[64];
};
extern "C" __declspec(dllexport) void intKelnCompltInfo(KelnCompltInfo info);

// The name given to intKelnCompltInfo, "" before.
const char* ruvoAppletName();
// Registrations made so far, for the applet's own use.
int ruvoRegisteredCount();

#endif  // RUVO_BASE_H_INCLUDED
