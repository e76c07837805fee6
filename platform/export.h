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
