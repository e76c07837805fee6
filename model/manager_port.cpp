#include "model/manager_port.h"

#include <atomic>

namespace ruvo {

namespace {
// Filled once at library load, read on bus threads: each slot is its own atomic.
std::atomic<MpRuvo* (*)(const std::string&)> g_find{nullptr};
std::atomic<int (*)()> g_start{nullptr};
std::atomic<int (*)()> g_stop{nullptr};
std::atomic<void (*)()> g_reset{nullptr};
std::atomic<bool (*)(_KelnCan*)> g_first{nullptr};
std::atomic<decltype(ManagerPort::createFuture)> g_future{nullptr};
}  // namespace

void setManagerPort(const ManagerPort& port) {
    g_find.store(port.findApplet);
    g_start.store(port.startMeasurement);
    g_stop.store(port.stopMeasurement);
    g_reset.store(port.resetFirstFrame);
    g_first.store(port.firstFrame);
    g_future.store(port.createFuture);
}

MpRuvo* findApplet(const std::string& name) {
    auto f = g_find.load();
    return f != nullptr ? f(name) : nullptr;
}

int startMeasurement() {
    auto f = g_start.load();
    return f != nullptr ? f() : 1;
}

int stopMeasurement() {
    auto f = g_stop.load();
    return f != nullptr ? f() : -1;
}

void resetFirstFrame() {
    if (auto f = g_reset.load()) f();
}

bool firstFrame(_KelnCan* out) {
    auto f = g_first.load();
    return f != nullptr && f(out);
}

void createFuture(keln_diagnosis_service_s* service, KelnBigMessageData* message, int cycleMs, int count,
                  const std::string& key) {
    if (auto f = g_future.load()) f(service, message, cycleMs, count, key);
}

}  // namespace ruvo
