// Killable thread on POSIX. The kill is a real-time signal sent to the one thread; its handler
// jumps back to the thread's entry, past the body's frames, and the thread then ends as usual.
// Neither an exception nor pthread_cancel: applet bodies catch everything, and forced unwinding
// through a catch-all aborts the process.
//
// Only the body can be killed. A phase word decides races between the killer and the thread: the
// killer moves Starting or Body to Killed, the thread moves Starting to Body and Body to Ending; so
// either the body's end is reported or the thread was killed, never both, and the start and end
// callbacks are never cut short.

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <condition_variable>
#include <csetjmp>
#include <cstring>
#include <mutex>

#include "platform/fault_guard.h"
#include "platform/killable_thread.h"
#include "platform/posix/guard_stack.h"

namespace platform {

namespace {

enum Phase : int { Starting, Body, Ending, Killed };

struct KillFrame {
    sigjmp_buf env;
    sigset_t mask;
    std::atomic<int>* phase;
};

__attribute__((tls_model("initial-exec"))) thread_local KillFrame* t_kill = nullptr;

// glibc keeps the first real-time signals for itself (SIGRTMIN already skips them); the
// sanitizers use none of them.
int killSignal() { return SIGRTMIN + 6; }

struct sigaction g_previousKill;
std::once_flag g_killInstalled;

void onKill(int sig, siginfo_t* info, void* context) {
    KillFrame* frame = t_kill;
    if (frame != nullptr && frame->phase->load() == Killed) {
        frame->mask = static_cast<ucontext_t*>(context)->uc_sigmask;
        siglongjmp(frame->env, 1);
    }
    // Not a kill of ours: hand it to whoever had the signal, else ignore it.
    if ((g_previousKill.sa_flags & SA_SIGINFO) != 0 && g_previousKill.sa_sigaction != nullptr) {
        g_previousKill.sa_sigaction(sig, info, context);
    } else if (g_previousKill.sa_handler != SIG_DFL && g_previousKill.sa_handler != SIG_IGN &&
               g_previousKill.sa_handler != nullptr) {
        g_previousKill.sa_handler(sig);
    }
}

void installKill() {
    detail::installOnAltStack(killSignal(), onKill, &g_previousKill);
}

// The kernel allows 15 bytes; cut at a character boundary of the UTF-8 text.
void nameThisThread(const std::string& name) {
    if (name.empty()) return;
    std::string cut = name.substr(0, 15);
    if (name.size() > 15) {
        size_t end = cut.size();
        while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
        cut.resize(end);
    }
    pthread_setname_np(pthread_self(), cut.c_str());
}

void callBody(void* body) { (*static_cast<std::function<void()>*>(body))(); }

}  // namespace

struct KillableThread::State {
    std::mutex mutex;
    std::condition_variable gone;
    pthread_t thread{};
    bool joinable = false;  // a native thread neither joined nor detached
    std::atomic<bool> alive{false};
    std::atomic<int> phase{Starting};
    std::string name;
    std::function<void()> body;
    std::function<void()> onStart;
    std::function<void(End, const std::string&)> onEnd;

    // Everything the body may be killed in; returns early (without onEnd) if a kill came first.
    void run() {
        if (onStart) onStart();
        int expected = Starting;
        if (!phase.compare_exchange_strong(expected, Body)) return;
        FaultReport report;
        const int rc = runGuarded(callBody, &body, &report);
        expected = Body;
        if (!phase.compare_exchange_strong(expected, Ending)) return;
        if (onEnd) onEnd(rc == 0 ? End::Returned : End::Faulted, report.what);
    }

    void joinFinished() {
        if (joinable && !alive) {
            pthread_join(thread, nullptr);
            joinable = false;
        }
    }

    static void* entry(void* raw) {
        std::shared_ptr<State>* held = static_cast<std::shared_ptr<State>*>(raw);
        std::shared_ptr<State> self = std::move(*held);
        delete held;
        nameThisThread(self->name);
        detail::prepareGuardedThread();
        runKillable(*self);
        std::lock_guard<std::mutex> lock(self->mutex);
        self->alive = false;
        self->gone.notify_all();
        return nullptr;
    }

    static void runKillable(State& state) {
        KillFrame frame;
        frame.phase = &state.phase;
        if (sigsetjmp(frame.env, 0) == 0) {
            t_kill = &frame;
            state.run();
        } else {
            // Killed: the body's guard frames lie in the abandoned part of the stack.
            detail::dropGuardFrames();
            pthread_sigmask(SIG_SETMASK, &frame.mask, nullptr);
        }
        t_kill = nullptr;
    }
};

KillableThread::KillableThread() : state(std::make_shared<State>()) {}

KillableThread::~KillableThread() {
    std::lock_guard<std::mutex> lock(state->mutex);
    if (!state->joinable) return;
    if (state->alive) {
        pthread_detach(state->thread);
        state->joinable = false;
    } else {
        state->joinFinished();
    }
}

bool KillableThread::start(std::function<void()> body, const std::string& name,
                           std::function<void()> onStart,
                           std::function<void(End, const std::string& what)> onEnd) {
    std::call_once(g_killInstalled, installKill);
    std::lock_guard<std::mutex> lock(state->mutex);
    if (state->alive) return false;
    state->joinFinished();
    state->name = name;
    state->body = std::move(body);
    state->onStart = std::move(onStart);
    state->onEnd = std::move(onEnd);
    state->phase = Starting;
    state->alive = true;
    auto* held = new std::shared_ptr<State>(state);
    if (pthread_create(&state->thread, nullptr, &State::entry, held) != 0) {
        delete held;
        state->alive = false;
        return false;
    }
    state->joinable = true;
    return true;
}

bool KillableThread::running() const { return state->alive; }

bool KillableThread::kill(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(state->mutex);
    if (!state->alive) {
        state->joinFinished();
        return true;
    }
    int phase = state->phase.load();
    while ((phase == Starting || phase == Body) && !state->phase.compare_exchange_weak(phase, Killed)) {
    }
    if (phase == Body && pthread_equal(state->thread, pthread_self())) {
        // A body killing itself ends here, as TerminateThread of the own thread does; the
        // mutex must not go down with it.
        lock.unlock();
        pthread_kill(pthread_self(), killSignal());
        return false;  // only if the body keeps the signal blocked
    }
    // Before the body the thread sees the kill itself; after it the thread ends by itself.
    if (phase == Body) pthread_kill(state->thread, killSignal());
    if (!state->gone.wait_for(lock, timeout, [&] { return !state->alive; })) return false;
    state->joinFinished();
    return true;
}

}  // namespace platform
