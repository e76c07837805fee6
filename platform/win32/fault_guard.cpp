// Fault guard on Windows: a structured exception frame that takes every exception. A C++
// exception is caught one frame further in, so that its text is kept (with /EHsc, catch (...)
// does not see structured exceptions). abort() raises SIGABRT through the C runtime instead of
// an exception; inside a guard its handler turns it into one.

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

thread_local int t_depth = 0;  // guards entered on this thread
std::once_flag g_abortInstalled;
void(__cdecl* g_previousAbort)(int) = SIG_DFL;

void __cdecl onAbort(int sig) {
    // The runtime resets the handler before it calls it.
    std::signal(SIGABRT, onAbort);
    if (t_depth > 0) RaiseException(kAbortException, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    // Outside every guard abort goes on as it would have.
    if (g_previousAbort != SIG_DFL && g_previousAbort != SIG_IGN && g_previousAbort != SIG_ERR &&
        g_previousAbort != nullptr) {
        g_previousAbort(sig);
    }
}

void installAbort() { g_previousAbort = std::signal(SIGABRT, onAbort); }

void fill(FaultReport* report, int code, const char* what) {
    if (report == nullptr) return;
    report->signal = code;
    std::strncpy(report->what, what, sizeof report->what - 1);
    report->what[sizeof report->what - 1] = '\0';
}

// The same names as on POSIX, so that reports read alike on both systems.
void describe(DWORD code, FaultReport* report) {
    if (report == nullptr) return;
    const char* name = nullptr;
    switch (code) {
    case EXCEPTION_ACCESS_VIOLATION:
    case EXCEPTION_ARRAY_BOUNDS_EXCEEDED:
    case EXCEPTION_STACK_OVERFLOW:
    case EXCEPTION_GUARD_PAGE: name = "SIGSEGV"; break;
    case EXCEPTION_IN_PAGE_ERROR:
    case EXCEPTION_DATATYPE_MISALIGNMENT: name = "SIGBUS"; break;
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
    case EXCEPTION_INT_OVERFLOW:
    case EXCEPTION_FLT_DIVIDE_BY_ZERO:
    case EXCEPTION_FLT_INVALID_OPERATION:
    case EXCEPTION_FLT_OVERFLOW:
    case EXCEPTION_FLT_UNDERFLOW:
    case EXCEPTION_FLT_INEXACT_RESULT:
    case EXCEPTION_FLT_DENORMAL_OPERAND:
    case EXCEPTION_FLT_STACK_CHECK: name = "SIGFPE"; break;
    case EXCEPTION_ILLEGAL_INSTRUCTION:
    case EXCEPTION_PRIV_INSTRUCTION: name = "SIGILL"; break;
    case kAbortException: name = "SIGABRT"; break;
    default: break;
    }
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

constexpr int kFaulted = -2;

// No object with a destructor may live in a function with __try.
int callUnderSeh(void (*fn)(void*), void* arg, FaultReport* report, DWORD* code) {
    int rc = kFaulted;
    __try {
        rc = callCatchingCpp(fn, arg, report);
    } __except (*code = GetExceptionCode(), EXCEPTION_EXECUTE_HANDLER) {
        rc = kFaulted;
    }
    return rc;
}

}  // namespace

int runGuarded(void (*fn)(void*), void* arg, FaultReport* report) {
    std::call_once(g_abortInstalled, installAbort);
    const int depth = t_depth++;
    DWORD code = 0;
    int rc = callUnderSeh(fn, arg, report, &code);
    t_depth = depth;
    if (rc != kFaulted) return rc;
    // The guard page that caught the overflow is used up; without it the next overflow would
    // end the process.
    if (code == EXCEPTION_STACK_OVERFLOW) _resetstkoflw();
    describe(code, report);
    return -1;
}

}  // namespace platform
