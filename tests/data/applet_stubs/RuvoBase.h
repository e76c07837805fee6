#pragma once
// Test stand-in for the applet base header: just what generated code uses.
#include <cstdint>
#include "model/keln_types.h"
#define __declspec(x)
enum RuvoEventKind {
    ruvo_prev_event, ruvo_post_event, ruvo_on_can_pre_send, ruvo_on_can_send, ruvo_on_can_recv,
    ruvo_on_key_pressed
};
template <typename F, typename A>
void registerFunc(F, RuvoEventKind, A) {}
struct LogStub {
    template <typename... T> int info_ex(const char*, const char*, T...) { return 0; }
};
static LogStub clog;
