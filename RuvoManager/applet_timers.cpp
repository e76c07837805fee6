// An applet's timers run while the measurement runs: started after the start handlers, stopped
// before the stop handlers, and started at once for a module loaded during a measurement.

#include "RuvoManager/RuvoManager.h"
#include "dispatch/RuvoTimer.h"
#include "dispatch/guarded_call.h"

namespace {

// The timer variables in source order, as the generator writes them: their handler names.
std::vector<std::string> timerFunctionNames(MpRuvo& applet) {
    std::vector<std::string> names;
    for (const RuvoFunction& f : applet.getMpFuncs()) {
        if (f.getSubType() == RFT_TIMER && f.getAdditions().size() >= 2) names.push_back(f.getName());
    }
    return names;
}

void callStdFunction(void* f) { (*static_cast<std::function<void()>*>(f))(); }

}  // namespace

void RuvoManager::adoptTimers(const std::string& name) {
    ruvo::clearFault(name);
    MpRuvo* applet = getApplet(name);
    if (applet == nullptr) return;
    AppletTimers set{applet->modulePin(), applet->moduleTimers()};
    if (!set.pin || set.timers.empty()) return;
    const std::vector<std::string> names = timerFunctionNames(*applet);
    const ruvo::FaultFlag flag = ruvo::faultFlagOf(name);
    for (size_t i = 0; i < set.timers.size(); ++i) {
        // A stale module may not match the model; the report then names no function.
        ruvo::HandlerRef ref{name, names.size() == set.timers.size() ? names[i] : "timer", flag};
        RuvoTimer* timer = set.timers[i];
        std::function<void()> body = timer->getCallBack();
        if (!body) continue;
        timer->setCallBack([body, ref] {
            std::function<void()> call = body;
            ruvo::callHandler(ref, callStdFunction, &call);
        });
    }
    std::lock_guard<std::mutex> lock(timerMutex);
    AppletTimers& entry = timerSets[name] = std::move(set);
    if (measuring.load()) {
        for (RuvoTimer* timer : entry.timers) timer->start(false);
    }
}

void RuvoManager::dropTimers(const std::string& name) {
    AppletTimers set;  // let go outside the lock: it may unmap the module
    {
        std::lock_guard<std::mutex> lock(timerMutex);
        const auto it = timerSets.find(name);
        if (it == timerSets.end()) return;
        for (RuvoTimer* timer : it->second.timers) timer->stop();
        set = std::move(it->second);
        timerSets.erase(it);
    }
    // Their tasks end before the module can go (a callback in progress finishes first).
    for (RuvoTimer* timer : set.timers) timer->waitStopped();
}

void RuvoManager::stopTimersOf(const std::string& name) {
    std::lock_guard<std::mutex> lock(timerMutex);
    const auto it = timerSets.find(name);
    if (it == timerSets.end()) return;
    for (RuvoTimer* timer : it->second.timers) timer->stop();
}

void RuvoManager::runTimers(bool run) {
    std::lock_guard<std::mutex> lock(timerMutex);
    measuring.store(run);
    for (auto& entry : timerSets) {
        if (run && ruvo::hasFaulted(entry.first)) continue;
        for (RuvoTimer* timer : entry.second.timers) {
            if (run) {
                timer->start(false);
            } else {
                timer->stop();
            }
        }
    }
}
