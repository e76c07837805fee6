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
