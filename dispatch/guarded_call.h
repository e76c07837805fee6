#pragma once
// Calling applet handlers so that a faulting applet doesn't take the host down.
//
// Without a fault sink, handlers are called directly and whatever they throw passes on to the
// caller, as the host's bus paths expect. Once the host sets a sink, every bus, key and timer
// handler runs under the fault guard: a hardware fault, abort or exception marks its applet
// faulted, the sink hears of it once, and the applet is called no more until its module is
// loaded again.

#include <atomic>
#include <memory>
#include <string>

#include "platform/export.h"

namespace ruvo {

using HandlerFaultSink = void (*)(const char* applet, const char* function, const char* what);
RUVO_API void setHandlerFaultSink(HandlerFaultSink sink);
HandlerFaultSink handlerFaultSink();

// Told (on the faulting thread, after the sink) when an applet has faulted.
using FaultListener = void (*)(const std::string& applet);
void setFaultListener(FaultListener listener);

using FaultFlag = std::shared_ptr<std::atomic<bool>>;
// One flag per applet name, shared by everything that calls into that applet.
FaultFlag faultFlagOf(const std::string& applet);
bool hasFaulted(const std::string& applet);
// A fresh module: the applet takes part again.
void clearFault(const std::string& applet);

// Who a handler belongs to, for the report.
struct HandlerRef {
    std::string applet;
    std::string function;
    FaultFlag faulted;
};

// Runs fn(arg) as `ref`'s handler. False if the applet had faulted before (nothing is called)
// or faults now.
bool callHandler(const HandlerRef& ref, void (*fn)(void*), void* arg);

namespace detail {
extern std::atomic<HandlerFaultSink> faultSink;
}
// True once the host asked for fault reports: handlers go through callHandler. The bus paths
// read it before each frame's calls, so a sink set during a batch guards the next frame.
inline bool handlersGuarded() { return detail::faultSink.load(std::memory_order_relaxed) != nullptr; }

}  // namespace ruvo
