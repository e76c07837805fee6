#pragma once
// Keyboard shortcuts: the hook procedure only queues the event; the worker matches it against
// the loaded applets' key bindings and calls their on_shortcut_ handlers.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <list>
#include <mutex>
#include <string>
#include <thread>

class RuvoManager;

namespace ruvo {

struct KeyEvent {
    int code;
    uint32_t wParam;
    uintptr_t lParam;  // points at the hook's record, read on the worker (pointer-wide here)
    bool ctrl;
    bool shift;
    bool alt;
};

class KeyboardWorker {
public:
    explicit KeyboardWorker(RuvoManager& manager) : manager(manager) {}
    ~KeyboardWorker() { stop(); }

    void start();
    void stop();
    // From the hook procedure: records the modifiers, queues, hands the event on.
    intptr_t onKey(int code, uintptr_t wParam, intptr_t lParam);
    // Returns once the queue is empty and no event is being handled, or after `timeoutMs`.
    void waitIdle(int timeoutMs);

private:
    void loop();
    void process(const KeyEvent& event);

    RuvoManager& manager;
    std::thread thread;
    std::atomic<bool> running{false};
    std::deque<KeyEvent> queue;
    std::mutex mutex;
    std::condition_variable condition;
    std::condition_variable idle;
    bool handling = false;  // under mutex
};

// Whether a binding's tokens fire for this virtual key with these modifiers.
bool keyBindingMatches(const std::list<std::string>& tokens, uint32_t virtualKey, bool ctrl, bool shift,
                       bool alt);

}  // namespace ruvo
