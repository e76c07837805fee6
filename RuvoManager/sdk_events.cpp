// Event bindings: keyboard shortcuts, CAN ids and timers.

#include <list>

#include "RuvoManager/ruvo_sdk.h"
#include "RuvoManager/sdk_call.h"
#include "model/type_names.h"

namespace ruvo_sdk {

using detail::applet;
using detail::nameAllowed;
using detail::str;
using ruvo::NameKind;

namespace {

std::list<std::string> partsOf(const char* const* parts, unsigned count) {
    std::list<std::string> list;
    for (unsigned i = 0; parts != nullptr && i < count; ++i) list.push_back(str(parts[i]));
    return list;
}

// Forwards to a member and returns its result, or -1 for an unknown applet.
template <typename F>
int forward(const char* name, F&& call) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    // Held through the whole call: some calls walk the applet's maps or make several edits.
    const auto hold = a->lockModel();
    return call(*a);
}

// As forward, for calls that bring a new binding key: the key becomes part of a handler name.
template <typename F>
int forwardKey(const char* call, const char* name, const char* key, F&& body) {
    if (!nameAllowed(call, NameKind::BindingKey, str(key))) return -1;
    return forward(name, std::forward<F>(body));
}

}  // namespace

int insertKeyboardEvent(const char* n, const char* key, const char* const* parts, unsigned count) {
    return forwardKey("insertKeyboardEvent", n, key, [&](MpRuvo& a) {
        return a.insertKeyboardEvent(str(key), partsOf(parts, count));
    });
}
int updateKeyboardEvent(const char* n, const char* oldKey, const char* newKey,
                        const char* const* parts, unsigned count) {
    return forwardKey("updateKeyboardEvent", n, newKey, [&](MpRuvo& a) {
        return a.updateKeyboardEvent(str(oldKey), str(newKey), partsOf(parts, count));
    });
}
int removeKeyboardEvent(const char* n, const char* key) {
    return forward(n, [&](MpRuvo& a) { return a.removeKeyboardEvent(str(key)), 0; });
}
int clearKeyboardEvent(const char* n) {
    return forward(n, [&](MpRuvo& a) { return a.clearKeyboardEvent(), 0; });
}

int insertRecvCANId(const char* n, const char* key, unsigned long long id) {
    return forwardKey("insertRecvCANId", n, key,
                      [&](MpRuvo& a) { return a.insertRecvCANId(str(key), id), 0; });
}
int insertSendCANId(const char* n, const char* key, unsigned long long id) {
    return forwardKey("insertSendCANId", n, key,
                      [&](MpRuvo& a) { return a.insertSendCANId(str(key), id), 0; });
}
int insertPreSendCANId(const char* n, const char* key, unsigned long long id) {
    return forwardKey("insertPreSendCANId", n, key,
                      [&](MpRuvo& a) { return a.insertPreSendCANId(str(key), id), 0; });
}
int updateRecvCANId(const char* n, const char* o, const char* k, unsigned long long id) {
    return forwardKey("updateRecvCANId", n, k,
                      [&](MpRuvo& a) { return a.updateRecvCANId(str(o), str(k), id); });
}
int updateSendCANId(const char* n, const char* o, const char* k, unsigned long long id) {
    return forwardKey("updateSendCANId", n, k,
                      [&](MpRuvo& a) { return a.updateSendCANId(str(o), str(k), id); });
}
int updatePreSendCANId(const char* n, const char* o, const char* k, unsigned long long id) {
    return forwardKey("updatePreSendCANId", n, k,
                      [&](MpRuvo& a) { return a.updatePreSendCANId(str(o), str(k), id); });
}
int removeRecvCANId(const char* n, const char* key) {
    return forward(n, [&](MpRuvo& a) { return a.removeRecvCANId(str(key)), 0; });
}
int removeSendCANId(const char* n, const char* key) {
    return forward(n, [&](MpRuvo& a) { return a.removeSendCANId(str(key)), 0; });
}
int removePreSendCANId(const char* n, const char* key) {
    return forward(n, [&](MpRuvo& a) { return a.removePreSendCANId(str(key)), 0; });
}
int clearRecvCANId(const char* n) {
    return forward(n, [&](MpRuvo& a) { return a.clearRecvCANId(), 0; });
}
int clearSendCANId(const char* n) {
    return forward(n, [&](MpRuvo& a) { return a.clearSendCANId(), 0; });
}
int clearPreSendCANId(const char* n) {
    return forward(n, [&](MpRuvo& a) { return a.clearPreSendCANId(), 0; });
}

int insertTimer(const char* n, const char* key, unsigned long long interval) {
    return forwardKey("insertTimer", n, key, [&](MpRuvo& a) {
        const std::string k = str(key);
        const std::string func = keyToFunName(k, RFT_TIMER);
        if (!a.hasFunc(func)) {
            a.addMpFunction(a.createFunc(func, RFT_TIMER, {k, std::to_string(interval)}));
        }
        return a.insertTimer(k, interval);
    });
}
int updateTimer(const char* n, const char* o, const char* k, unsigned long long interval) {
    return forwardKey("updateTimer", n, k,
                      [&](MpRuvo& a) { return a.updateTimer(str(o), str(k), interval); });
}
int removeTimer(const char* n, const char* key) {
    return forward(n, [&](MpRuvo& a) { return a.removeTimer(str(key)), 0; });
}
int clearTimer(const char* n) {
    return forward(n, [&](MpRuvo& a) { return a.clearTimers(), 0; });
}
int getTimersCount(const char* n, int* count) {
    return forward(n, [&](MpRuvo& a) {
        if (count) *count = static_cast<int>(a.getTimers().size());
        return 0;
    });
}
int getTimers(const char* n, char** const names, unsigned long long* const intervals,
              int capacity) {
    return forward(n, [&](MpRuvo& a) {
        int i = 0;
        for (auto& entry : a.getTimers()) {
            if (names) names[i] = const_cast<char*>(entry.first.c_str());
            if (intervals) intervals[i] = entry.second;
            ++i;
            if (i == capacity || (capacity <= 0 && i >= 1)) break;
        }
        return 0;
    });
}
int getTimerInterval(const char* n, const char* key, unsigned long long* out) {
    return forward(n, [&](MpRuvo& a) {
        if (out) *out = a.getTimerInterval(str(key));
        return 0;
    });
}
int clearStartEvents(const char* n) {
    return forward(n, [&](MpRuvo& a) { return a.clearStartEvents(), 0; });
}
int clearStopEvents(const char* n) {
    return forward(n, [&](MpRuvo& a) { return a.clearStopEvents(), 0; });
}

}  // namespace ruvo_sdk
