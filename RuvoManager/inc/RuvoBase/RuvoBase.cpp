// Compiled into every applet module beside its generated source.

#include "RuvoBase.h"

#include <cstring>

// Generated sources define init() when they have a main function; without one it is absent.
void init() __attribute__((weak));

namespace {

struct Registration {
    const void* handler;
    RuvoEventKind kind;
    unsigned long long canId;
    const char* keys;
};

Registration g_registrations[256];
int g_registrationCount = 0;
char g_appletName[64] = {0};

void remember(const void* handler, RuvoEventKind kind, unsigned long long canId, const char* keys) {
    if (g_registrationCount < 256) {
        g_registrations[g_registrationCount++] = Registration{handler, kind, canId, keys};
    }
}

}  // namespace

void registerFunc(void (*handler)(void), RuvoEventKind kind, std::nullptr_t) {
    remember(reinterpret_cast<const void*>(handler), kind, 0, nullptr);
}

void registerFunc(void (*handler)(PKelnCan), RuvoEventKind kind, unsigned long long canId) {
    remember(reinterpret_cast<const void*>(handler), kind, canId, nullptr);
}

void registerFunc(void (*handler)(s32), RuvoEventKind kind, const char* keys) {
    remember(reinterpret_cast<const void*>(handler), kind, 0, keys);
}

extern "C" void intKelnCompltInfo(KelnCompltInfo info) {
    std::memcpy(g_appletName, info.name, sizeof(g_appletName));
    g_appletName[sizeof(g_appletName) - 1] = '\0';
    g_registrationCount = 0;
    if (init) init();
}

const char* ruvoAppletName() { return g_appletName; }

int ruvoRegisteredCount() { return g_registrationCount; }
