#pragma once
// Private scratch directories.

#include <string>

namespace platform {

// A new directory of the user's alone in the system's temporary directory, named `prefix` and a
// unique suffix, created atomically (a name someone else made first is never reused).
// "" when none can be made.
std::string makeTempDirectory(const std::string& prefix);

}  // namespace platform
