// Fault guard on POSIX: one set of handlers for the process, a stack of guard frames per thread.
//
// The normal path only saves registers (sigsetjmp without the signal mask) and links a frame into
// a thread-local list: no system call. On a fault the handler, on the thread's alternate stack,
// unlinks the innermost frame and jumps to it; the guard then restores the signal mask the thread
// had at the fault, which the kernel kept in the handler's context.

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cxxabi.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <exception>
#include <mutex>

#include "platform/fault_guard.h"
#include "platform/posix/guard_stack.h"

namespace platform {

namespace {

struct GuardFrame {
    sigjmp_buf env;
    GuardFrame* prev;
    int signal;
    sigset_t mask;
};

// initial-exec: the handler reads these without a call into the dynamic linker.
__attribute__((tls_model("initial-exec"))) thread_local GuardFrame* t_top = nullptr;
__attribute__((tls_model("initial-exec"))) thread_local bool t_ready = false;

constexpr int kFaultSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
struct sigaction g_previous[sizeof(kFaultSignals) / sizeof(kFaultSignals[0])];
std::once_flag g_installed;

const char* signalName(int sig) {
    switch (sig) {
    case SIGSEGV: return "SIGSEGV";
    case SIGBUS: return "SIGBUS";
    case SIGFPE: return "SIGFPE";
    case SIGILL: return "SIGILL";
    case SIGABRT: return "SIGABRT";
    default: return "signal";
    }
}

// Outside every guard: do what would have happened without us.
void passOn(int sig, siginfo_t* info, void* context) {
    for (size_t i = 0; i < sizeof(kFaultSignals) / sizeof(kFaultSignals[0]); ++i) {
        if (kFaultSignals[i] != sig) continue;
        const struct sigaction& prev = g_previous[i];
        if ((prev.sa_flags & SA_SIGINFO) != 0 && prev.sa_sigaction != nullptr) {
            prev.sa_sigaction(sig, info, context);
            return;
        }
        if (prev.sa_handler != SIG_DFL && prev.sa_handler != SIG_IGN && prev.sa_handler != nullptr) {
            prev.sa_handler(sig);
            return;
        }
    }
    // Default action: a hardware fault repeats when the instruction runs again; a sent signal
    // (abort, kill) must be sent again. It stays blocked until this handler returns.
    signal(sig, SIG_DFL);
    if (info == nullptr || info->si_code <= 0) raise(sig);
}

void onFault(int sig, siginfo_t* info, void* context) {
    GuardFrame* frame = t_top;
    if (frame == nullptr) {
        passOn(sig, info, context);
        return;
    }
    t_top = frame->prev;
    frame->signal = sig;
    frame->mask = static_cast<ucontext_t*>(context)->uc_sigmask;
    siglongjmp(frame->env, 1);
}

void install() {
    for (size_t i = 0; i < sizeof(kFaultSignals) / sizeof(kFaultSignals[0]); ++i) {
        detail::installOnAltStack(kFaultSignals[i], onFault, &g_previous[i]);
    }
}

// A stack for the handler, so that a stack overflow can still be reported. Freed at thread exit.
struct AltStack {
    void* memory = nullptr;
    size_t size = 0;
    ~AltStack() {
        if (memory == nullptr) return;
        stack_t none;
        std::memset(&none, 0, sizeof none);
        none.ss_flags = SS_DISABLE;
        sigaltstack(&none, nullptr);
        munmap(memory, size);
    }
};
thread_local AltStack t_altStack;

void prepareThread() {
    std::call_once(g_installed, install);
    stack_t current;
    if (sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE) != 0) {
        // A sanitizer may have given the thread one already; otherwise it gets ours.
        const size_t size = std::max<size_t>(64 * 1024, 4 * static_cast<size_t>(SIGSTKSZ));
        void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory != MAP_FAILED) {
            stack_t ours;
            std::memset(&ours, 0, sizeof ours);
            ours.ss_sp = memory;
            ours.ss_size = size;
            if (sigaltstack(&ours, nullptr) == 0) {
                t_altStack.memory = memory;
                t_altStack.size = size;
            } else {
                munmap(memory, size);
            }
        }
    }
    t_ready = true;
}

void fill(FaultReport* report, int sig, const char* what) {
    if (report == nullptr) return;
    report->signal = sig;
    std::strncpy(report->what, what, sizeof report->what - 1);
    report->what[sizeof report->what - 1] = '\0';
}

}  // namespace

namespace detail {

void installOnAltStack(int sig, void (*handler)(int, siginfo_t*, void*), struct sigaction* previous) {
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    sigaction(sig, &action, previous);
}

void prepareGuardedThread() {
    if (!t_ready) prepareThread();
}

void dropGuardFrames() { t_top = nullptr; }

}  // namespace detail

int runGuarded(void (*fn)(void*), void* arg, FaultReport* report) {
    if (!t_ready) prepareThread();
    GuardFrame frame;
    frame.prev = t_top;
    frame.signal = 0;
    if (sigsetjmp(frame.env, 0) != 0) {
        pthread_sigmask(SIG_SETMASK, &frame.mask, nullptr);
        fill(report, frame.signal, signalName(frame.signal));
        return -1;
    }
    t_top = &frame;
    try {
        fn(arg);
    } catch (abi::__forced_unwind&) {
        // Thread cancellation must go on unwinding.
        t_top = frame.prev;
        throw;
    } catch (const std::exception& e) {
        t_top = frame.prev;
        fill(report, 0, e.what());
        return -1;
    } catch (...) {
        t_top = frame.prev;
        fill(report, 0, "unknown exception");
        return -1;
    }
    t_top = frame.prev;
    return 0;
}

}  // namespace platform
