#include "RuvoManager/keyboard_worker.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <iostream>

#include "RuvoManager/RuvoManager.h"
#include "dispatch/guarded_call.h"
#include "platform/keyboard_hook.h"

namespace {

// Shared by the whole process, as the system hook is.
platform::KeyHookHandle g_hookHandle = nullptr;
std::function<intptr_t(int, uintptr_t, intptr_t)> g_hookCallback;
std::mutex g_hookMutex;  // the hook procedure runs on the injecting thread

intptr_t hookProcedure(int code, uintptr_t wParam, intptr_t lParam) {
    std::function<intptr_t(int, uintptr_t, intptr_t)> callback;
    {
        std::lock_guard<std::mutex> lock(g_hookMutex);
        callback = g_hookCallback;
    }
    return callback ? callback(code, wParam, lParam) : 0;
}

struct ShortcutCall {
    void (*handler)(int);
    int virtualKey;
};

void callShortcut(void* call) {
    auto* c = static_cast<ShortcutCall*>(call);
    c->handler(c->virtualKey);
}

}  // namespace

namespace ruvo {

bool keyBindingMatches(const std::list<std::string>& tokens, uint32_t virtualKey, bool ctrl, bool shift,
                       bool alt) {
    bool wantCtrl = false, wantShift = false, wantAlt = false, matched = false;
    for (const std::string& t : tokens) {
        wantCtrl |= t == "Ctrl";
        wantShift |= t == "Shift";
        wantAlt |= t == "Alt";
    }
    for (const std::string& t : tokens) {
        if (t == "Ctrl" || t == "Shift" || t == "Alt") continue;
        if (t.size() >= 4 && t.compare(0, 3, "Num") == 0) {
            matched = t[3] >= '0' && t[3] <= '9' && virtualKey == static_cast<uint32_t>(t[3] - '0' + platform::kVkNumpad0);
        } else if (t.size() == 1) {
            matched = static_cast<int64_t>(virtualKey) == static_cast<signed char>(t[0]);
        }
        if (matched) break;
    }
    return matched && wantCtrl == ctrl && wantShift == shift && wantAlt == alt;
}

void KeyboardWorker::start() {
    if (running.exchange(true)) return;
    thread = std::thread([this] { loop(); });
}

void KeyboardWorker::stop() {
    if (!running.exchange(false)) return;
    condition.notify_all();
    if (thread.joinable()) thread.join();
}

intptr_t KeyboardWorker::onKey(int code, uintptr_t wParam, intptr_t lParam) {
    const bool ctrl = platform::keyState(platform::kVkControl) < 0;
    const bool shift = platform::keyState(platform::kVkShift) < 0;
    const bool alt = platform::keyState(platform::kVkMenu) < 0;
    {
        std::lock_guard<std::mutex> lock(mutex);
        queue.push_back(KeyEvent{code, static_cast<uint32_t>(wParam), static_cast<uintptr_t>(lParam), ctrl, shift, alt});
    }
    condition.notify_one();
    return platform::callNextKeyboardHook(code, wParam, lParam);
}

void KeyboardWorker::loop() {
    while (running.load()) {
        KeyEvent event{};
        bool have = false;
        {
            std::unique_lock<std::mutex> lock(mutex);
            if (condition.wait_for(lock, std::chrono::milliseconds(100),
                                   [this] { return !queue.empty() || !running.load(); }) &&
                !queue.empty()) {
                event = queue.front();
                queue.pop_front();
                have = true;
                handling = true;
            }
        }
        if (!have) continue;
        process(event);
        {
            std::lock_guard<std::mutex> lock(mutex);
            handling = false;
        }
        idle.notify_all();
    }
}

void KeyboardWorker::waitIdle(int timeoutMs) {
    std::unique_lock<std::mutex> lock(mutex);
    idle.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] {
        return (queue.empty() || !running.load()) && !handling;
    });
}

void KeyboardWorker::process(const KeyEvent& event) {
    std::lock_guard<std::mutex> registry(manager.appletsMutex);
    if (event.code != 0) return;
    for (const auto& entry : manager.applets) {
        const std::shared_ptr<MpRuvo>& applet = entry.second;
        if (!applet || !applet->isLoaded() || applet->isEmptyKeyboardEvent()) continue;
        if (ruvo::handlerFaultSink() != nullptr && ruvo::hasFaulted(entry.first)) continue;
        for (const auto& binding : applet->getKeyboardEvents()) {
            if (event.wParam != platform::kWmKeyDown && event.wParam != platform::kWmSysKeyDown) continue;
            // Read now, on the worker: the hook queued the pointer, not the value.
            const uint32_t virtualKey = *reinterpret_cast<const uint32_t*>(event.lParam);
            if (!keyBindingMatches(binding.second, virtualKey, event.ctrl, event.shift, event.alt)) continue;
            const std::string name = "on_shortcut_" + binding.first;
            if (applet->getMpHandle() == nullptr) continue;
            void* address = applet->getDllFuncAddress(name);
            if (address == nullptr) continue;
            ShortcutCall call{reinterpret_cast<void (*)(int)>(address), static_cast<int>(virtualKey)};
            try {
                ruvo::callHandler(HandlerRef{entry.first, name, faultFlagOf(entry.first)}, callShortcut, &call);
            } catch (...) {
                // Dropped: the next binding still gets the key.
            }
        }
    }
}

}  // namespace ruvo

namespace {
bool hookSet() {
    std::lock_guard<std::mutex> lock(g_hookMutex);
    return g_hookHandle != nullptr;
}
}  // namespace

void RuvoManager::waitKeyboardIdle() { keyboard->waitIdle(5000); }

void RuvoManager::registerLambdaCallback() {
    if (hookSet()) return;
    ruvo::KeyboardWorker* worker = keyboard.get();
    std::function<intptr_t(int, uintptr_t, intptr_t)> callback = [worker](int code, uintptr_t w, intptr_t l) {
        return worker->onKey(code, w, l);
    };
    unsigned long error = 0;
    platform::KeyHookHandle handle = platform::setKeyboardHook(hookProcedure, error);
    if (handle == nullptr) std::cout << "SetWindowsHookEx failed: " << error << std::endl;
    {
        std::lock_guard<std::mutex> lock(g_hookMutex);
        g_hookHandle = handle;
        g_hookCallback = std::move(callback);
    }
    worker->start();
}

void RuvoManager::unregisterLambdaCallback(std::string appletName) {
    if (!hookSet()) return;
    {
        std::lock_guard<std::mutex> lock(appletsMutex);
        for (const auto& entry : applets) {
            const std::shared_ptr<MpRuvo>& applet = entry.second;
            if (!applet || applet->getMpName() == appletName) continue;
            if (applet->isLoaded() && !applet->isEmptyKeyboardEvent()) return;
        }
    }
    keyboard->stop();
    std::lock_guard<std::mutex> lock(g_hookMutex);
    platform::removeKeyboardHook(g_hookHandle);
    g_hookHandle = nullptr;
    g_hookCallback = nullptr;
}
