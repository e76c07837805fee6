#pragma once

// The one export marker of libRuvoManager: everything else stays hidden.
#if defined(_WIN32)
#  if defined(RUVO_BUILDING)
#    define RUVO_API __declspec(dllexport)
#  else
#    define RUVO_API __declspec(dllimport)
#  endif
#else
#  define RUVO_API __attribute__((visibility("default")))
#endif

// Process-wide services (signal handlers, the keyboard hook chain, killable threads) must exist
// once per process, so they live in the host library and are exported from there.
#if defined(_WIN32)
#  if defined(HOSTBRIDGE_BUILDING)
#    define RUVO_PLATFORM_API __declspec(dllexport)
#  else
#    define RUVO_PLATFORM_API __declspec(dllimport)
#  endif
#else
#  define RUVO_PLATFORM_API __attribute__((visibility("default")))
#endif

// Applets mark their handlers __declspec(dllexport), as a Windows module does. Elsewhere a module
// is a shared object built with hidden visibility, and the same words make a symbol visible.
#if !defined(_WIN32) && !defined(__declspec)
#  define __declspec(x) __attribute__((visibility("default")))
#endif

// printf-style format checking of our own formatting calls. MinGW builds use its C99 printf
// (__USE_MINGW_ANSI_STDIO), which knows %zu and %lld; the plain archetype there is msvcrt's.
#if defined(__MINGW32__)
#  define RUVO_PRINTF(f, a) __attribute__((format(gnu_printf, f, a)))
#else
#  define RUVO_PRINTF(f, a) __attribute__((format(printf, f, a)))
#endif
