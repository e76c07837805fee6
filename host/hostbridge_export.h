#pragma once

// The host libraries are separate DLLs; only what is marked here leaves the library.
#if defined(_WIN32)
#  if defined(HOSTBRIDGE_BUILDING)
#    define HOSTBRIDGE_API __declspec(dllexport)
#  else
#    define HOSTBRIDGE_API __declspec(dllimport)
#  endif
#else
#  define HOSTBRIDGE_API __attribute__((visibility("default")))
#endif
