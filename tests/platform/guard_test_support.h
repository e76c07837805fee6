#pragma once
// Bodies that fault on purpose, for the fault guard and thread tests. Each takes its victim as
// the argument, so that the compiler can't see the fault coming and turn it into something else.

#include <cstdlib>
#include <stdexcept>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define GUARD_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define GUARD_TEST_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_THREAD__)
#define GUARD_TEST_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define GUARD_TEST_TSAN 1
#endif
#endif

namespace guard_test {

// The sanitizers would report these before the hardware does (ThreadSanitizer sees threads
// "racing" on address 0); the hardware fault is the point.
#define GUARD_TEST_UNCHECKED __attribute__((noinline, no_sanitize("undefined", "thread")))

GUARD_TEST_UNCHECKED inline void writeThrough(void* target) { *static_cast<volatile int*>(target) = 1; }

GUARD_TEST_UNCHECKED inline void divideByZero(void*) {
    volatile int dividend = 1;
    volatile int divisor = 0;
    volatile int quotient = dividend / divisor;
    (void)quotient;
}

inline void callAbort(void*) { std::abort(); }

inline void illegalInstruction(void*) { __builtin_trap(); }

// Each level keeps a buffer alive across the call, so the recursion can't become a loop.
GUARD_TEST_UNCHECKED inline int recurse(volatile int* depth) {
    volatile char buffer[512];
    buffer[0] = static_cast<char>(*depth);
    ++*depth;
    if (*depth < 0) return buffer[0];
    return recurse(depth) + buffer[0];
}

inline void overflowStack(void*) {
    volatile int depth = 0;
    recurse(&depth);
}

inline void throwRuntimeError(void*) { throw std::runtime_error("cycle table broken"); }

inline void throwInt(void*) { throw 42; }

inline void doNothing(void*) {}

}  // namespace guard_test
