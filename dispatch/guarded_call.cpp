#include "dispatch/guarded_call.h"

#include <map>
#include <mutex>

#include "model/revision.h"
#include "platform/fault_guard.h"

namespace ruvo {

namespace detail {
std::atomic<HandlerFaultSink> faultSink{nullptr};
}

namespace {

std::atomic<FaultListener> g_listener{nullptr};

std::mutex& flagsMutex() {
    static std::mutex m;
    return m;
}

std::map<std::string, FaultFlag>& flags() {
    static auto* m = new std::map<std::string, FaultFlag>;  // outlives handler threads at exit
    return *m;
}

void reportFault(const HandlerRef& ref, const char* what) {
    if (ref.faulted->exchange(true)) return;  // told once per applet
    if (HandlerFaultSink sink = detail::faultSink.load()) sink(ref.applet.c_str(), ref.function.c_str(), what);
    if (FaultListener listener = g_listener.load()) listener(ref.applet);
    touchModel();  // the next batch is built without this applet
}

}  // namespace

void setHandlerFaultSink(HandlerFaultSink sink) { detail::faultSink.store(sink); }
HandlerFaultSink handlerFaultSink() { return detail::faultSink.load(); }
void setFaultListener(FaultListener listener) { g_listener.store(listener); }

FaultFlag faultFlagOf(const std::string& applet) {
    std::lock_guard<std::mutex> lock(flagsMutex());
    FaultFlag& flag = flags()[applet];
    if (!flag) flag = std::make_shared<std::atomic<bool>>(false);
    return flag;
}

bool hasFaulted(const std::string& applet) {
    std::lock_guard<std::mutex> lock(flagsMutex());
    const auto it = flags().find(applet);
    return it != flags().end() && it->second->load();
}

void clearFault(const std::string& applet) { faultFlagOf(applet)->store(false); }

bool callHandler(const HandlerRef& ref, void (*fn)(void*), void* arg) {
    if (detail::faultSink.load(std::memory_order_relaxed) == nullptr) {
        fn(arg);
        return true;
    }
    if (ref.faulted->load(std::memory_order_relaxed)) return false;
    platform::FaultReport report;
    if (platform::runGuarded(fn, arg, &report) == 0) return true;
    reportFault(ref, report.what);
    return false;
}

}  // namespace ruvo
