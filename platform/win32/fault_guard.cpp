// Fault guard on Windows: a vectored exception handler sees a hardware fault first; when the
// faulting thread is inside a guard it resumes the thread in a small routine that jumps back to
// that guard (a jump from an ordinary frame, not from inside the handler). Any compiler works:
// no __try is needed. A C++ exception is caught one frame further in, so that its text is kept.
// abort() raises SIGABRT through the C runtime instead of an exception; inside a guard its
// handler turns it into one.

#include <windows.h>

#include <malloc.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <mutex>

#include "platform/fault_guard.h"

namespace platform {

namespace {

// Customer bit set: no system exception has this code.
constexpr DWORD kAbortException = 0xE0AB0001;

// One guard on the thread's stack; the innermost is where a fault returns to.
struct Guard {
    void* jump[5];  // __builtin_setjmp's buffer
    Guard* outer;
    DWORD code;
};
thread_local Guard* t_guard = nullptr;
std::once_flag g_installed;
void(__cdecl* g_previousAbort)(int) = SIG_DFL;

void __cdecl onAbort(int sig) {
    // The runtime resets the handler before it calls it.
    std::signal(SIGABRT, onAbort);
    // Continuable: the handler resumes the thread elsewhere.
    if (t_guard != nullptr) RaiseException(kAbortException, 0, 0, nullptr);
    // Outside every guard abort goes on as it would have.
    if (g_previousAbort != SIG_DFL && g_previousAbort != SIG_IGN && g_previousAbort != SIG_ERR &&
        g_previousAbort != nullptr) {
        g_previousAbort(sig);
    }
}


void fill(FaultReport* report, int code, const char* what) {
    if (report == nullptr) return;
    report->signal = code;
    std::strncpy(report->what, what, sizeof report->what - 1);
    report->what[sizeof report->what - 1] = '\0';
}

// The same names as on POSIX, so that reports read alike on both systems; null for an exception
// that is no fault (C++ exceptions and the rest go their usual way).
const char* faultName(DWORD code) {
    switch (code) {
    case EXCEPTION_ACCESS_VIOLATION:
    case EXCEPTION_ARRAY_BOUNDS_EXCEEDED:
    case EXCEPTION_STACK_OVERFLOW:
    case EXCEPTION_GUARD_PAGE: return "SIGSEGV";
    case EXCEPTION_IN_PAGE_ERROR:
    case EXCEPTION_DATATYPE_MISALIGNMENT: return "SIGBUS";
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
    case EXCEPTION_INT_OVERFLOW:
    case EXCEPTION_FLT_DIVIDE_BY_ZERO:
    case EXCEPTION_FLT_INVALID_OPERATION:
    case EXCEPTION_FLT_OVERFLOW:
    case EXCEPTION_FLT_UNDERFLOW:
    case EXCEPTION_FLT_INEXACT_RESULT:
    case EXCEPTION_FLT_DENORMAL_OPERAND:
    case EXCEPTION_FLT_STACK_CHECK: return "SIGFPE";
    case EXCEPTION_ILLEGAL_INSTRUCTION:
    case EXCEPTION_PRIV_INSTRUCTION: return "SIGILL";
    case kAbortException: return "SIGABRT";
    default: return nullptr;
    }
}

void describe(DWORD code, FaultReport* report) {
    if (report == nullptr) return;
    const char* name = faultName(code);
    if (name != nullptr) {
        fill(report, static_cast<int>(code), name);
    } else {
        char text[32];
        std::snprintf(text, sizeof text, "exception 0x%08lX", static_cast<unsigned long>(code));
        fill(report, static_cast<int>(code), text);
    }
}

int callCatchingCpp(void (*fn)(void*), void* arg, FaultReport* report) {
    try {
        fn(arg);
        return 0;
    } catch (const std::exception& e) {
        fill(report, 0, e.what());
    } catch (...) {
        fill(report, 0, "unknown exception");
    }
    return -1;
}

[[noreturn]] void backToGuard() { __builtin_longjmp(t_guard->jump, 1); }

LONG CALLBACK onException(EXCEPTION_POINTERS* info) {
    Guard* guard = t_guard;
    const DWORD code = info->ExceptionRecord->ExceptionCode;
    if (guard == nullptr || faultName(code) == nullptr) return EXCEPTION_CONTINUE_SEARCH;
    guard->code = code;
    // Resume in backToGuard on a 16-byte aligned stack, as if it had been called.
    CONTEXT* context = info->ContextRecord;
    context->Rsp = ((context->Rsp - 256) & ~DWORD64(15)) - 8;
    context->Rip = reinterpret_cast<DWORD64>(&backToGuard);
    return EXCEPTION_CONTINUE_EXECUTION;
}

void install() {
    AddVectoredExceptionHandler(1, onException);
    g_previousAbort = std::signal(SIGABRT, onAbort);
}

}  // namespace

int runGuarded(void (*fn)(void*), void* arg, FaultReport* report) {
    std::call_once(g_installed, install);
    Guard guard;
    guard.outer = t_guard;
    guard.code = 0;
    if (__builtin_setjmp(guard.jump) == 0) {
        t_guard = &guard;
        const int rc = callCatchingCpp(fn, arg, report);
        t_guard = guard.outer;
        return rc;
    }
    t_guard = guard.outer;
    // The guard page that caught the overflow is used up; without it the next overflow would
    // end the process.
    if (guard.code == EXCEPTION_STACK_OVERFLOW) _resetstkoflw();
    describe(guard.code, report);
    return -1;
}

}  // namespace platform
