#pragma once
// What the commands that keep running share: --for SECONDS.

#include <cerrno>
#include <cstdlib>
#include <string>

#include "apps/ruvo/cli.h"

namespace cli {

// The argument of --for: seconds above 0.
inline double parseSeconds(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || errno != 0 || !(v > 0) || v > 1e7) {
        throw UsageError("--for needs a number of seconds above 0: " + text);
    }
    return v;
}

}  // namespace cli
