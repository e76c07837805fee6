// Killable thread on Windows: TerminateThread, with what it leaves behind (see the header).
//
// Only the body can be killed. A phase word decides races between the killer and the thread: the
// killer moves Starting or Body to Killed, the thread moves Starting to Body and Body to Ending.
// A thread killed in Body never touches the shared state again (TerminateThread could catch it
// holding the mutex), so the killer marks it gone; one killed in Starting ends by itself.

#include <windows.h>

#include <process.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>

#include "platform/fault_guard.h"
#include "platform/killable_thread.h"

namespace platform {

namespace {

enum Phase : int { Starting, Body, Ending, Killed };

// SetThreadDescription exists from Windows 10 1607 on; older systems go without names.
void nameThisThread(const std::string& name) {
    if (name.empty()) return;
    using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    if (kernel == nullptr) return;
    // Through void*: the entry point has its own type, not FARPROC.
    auto set = reinterpret_cast<SetDescription>(reinterpret_cast<void*>(GetProcAddress(kernel, "SetThreadDescription")));
    if (set == nullptr) return;
    const int n = MultiByteToWideChar(CP_UTF8, 0, name.data(), static_cast<int>(name.size()), nullptr, 0);
    if (n <= 0) return;
    std::wstring wide(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, name.data(), static_cast<int>(name.size()), &wide[0], n);
    set(GetCurrentThread(), wide.c_str());
}

void callBody(void* body) { (*static_cast<std::function<void()>*>(body))(); }

}  // namespace

struct KillableThread::State {
    std::mutex mutex;
    std::condition_variable gone;
    HANDLE thread = nullptr;  // of a thread neither waited for nor let go
    DWORD threadId = 0;
    std::atomic<bool> alive{false};
    std::atomic<int> phase{Starting};
    std::shared_ptr<State> self;  // the running thread's hold on this state
    std::string name;
    std::function<void()> body;
    std::function<void()> onStart;
    std::function<void(End, const std::string&)> onEnd;

    void closeFinished() {
        if (thread != nullptr && !alive) {
            WaitForSingleObject(thread, INFINITE);
            CloseHandle(thread);
            thread = nullptr;
        }
    }

    static unsigned __stdcall entry(void* raw) {
        State* state = static_cast<State*>(raw);
        nameThisThread(state->name);
        if (state->onStart) state->onStart();
        int expected = Starting;
        if (state->phase.compare_exchange_strong(expected, Body)) {
            FaultReport report;
            const int rc = runGuarded(callBody, &state->body, &report);
            expected = Body;
            if (!state->phase.compare_exchange_strong(expected, Ending)) {
                // Killed: TerminateThread is on its way; wait for it away from the mutex.
                for (;;) Sleep(INFINITE);
            }
            if (state->onEnd) state->onEnd(rc == 0 ? End::Returned : End::Faulted, report.what);
        }
        std::shared_ptr<State> keep;
        {
            std::lock_guard<std::mutex> lock(state->mutex);
            state->alive = false;
            keep = std::move(state->self);
            state->gone.notify_all();
        }
        return 0;
    }
};

KillableThread::KillableThread() : state(std::make_shared<State>()) {}

KillableThread::~KillableThread() {
    std::lock_guard<std::mutex> lock(state->mutex);
    if (state->thread == nullptr) return;
    if (state->alive) {
        CloseHandle(state->thread);  // the thread runs on, holding the state through `self`
        state->thread = nullptr;
    } else {
        state->closeFinished();
    }
}

bool KillableThread::start(std::function<void()> body, const std::string& name,
                           std::function<void()> onStart,
                           std::function<void(End, const std::string& what)> onEnd) {
    std::lock_guard<std::mutex> lock(state->mutex);
    if (state->alive) return false;
    state->closeFinished();
    state->name = name;
    state->body = std::move(body);
    state->onStart = std::move(onStart);
    state->onEnd = std::move(onEnd);
    state->phase = Starting;
    state->alive = true;
    state->self = state;
    unsigned id = 0;
    const uintptr_t handle = _beginthreadex(nullptr, 0, &State::entry, state.get(), 0, &id);
    if (handle == 0) {
        state->alive = false;
        state->self.reset();
        return false;
    }
    state->thread = reinterpret_cast<HANDLE>(handle);
    state->threadId = id;
    return true;
}

bool KillableThread::running() const { return state->alive; }

bool KillableThread::kill(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(state->mutex);
    if (!state->alive) {
        state->closeFinished();
        return true;
    }
    int phase = state->phase.load();
    while ((phase == Starting || phase == Body) && !state->phase.compare_exchange_weak(phase, Killed)) {
    }
    if (phase != Body) {
        // Before the body the thread sees the kill itself; after it the thread ends by itself.
        if (!state->gone.wait_for(lock, timeout, [&] { return !state->alive; })) return false;
        state->closeFinished();
        return true;
    }
    if (state->threadId == GetCurrentThreadId()) {
        // A body killing itself ends here; the state is left as the thread's own end leaves it.
        state->alive = false;
        std::shared_ptr<State> keep = std::move(state->self);
        state->gone.notify_all();
        lock.unlock();
        keep.reset();  // this object still holds the state
        TerminateThread(GetCurrentThread(), 1);
        return false;
    }
    TerminateThread(state->thread, 1);
    const HANDLE thread = state->thread;
    lock.unlock();
    // TerminateThread returns before the thread has gone.
    const DWORD waited = WaitForSingleObject(thread, static_cast<DWORD>(timeout.count()));
    lock.lock();
    if (waited != WAIT_OBJECT_0) return false;
    state->alive = false;
    state->self.reset();  // this object still holds the state
    CloseHandle(state->thread);
    state->thread = nullptr;
    state->gone.notify_all();
    return true;
}

}  // namespace platform
