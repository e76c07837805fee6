#pragma once
// Pieces of an applet build that are the same for every applet, made once per installation and
// reused: the applet headers as a precompiled prefix, and RuvoBase as an object. A rebuild after
// an edit then compiles only the applet's own text (POSIX profile only; the Windows command
// stays as it is).

#include <string>

#include "build/compile_command.h"

namespace ruvo {

// The pieces for the installation below `currentDir`, made first if missing or out of date.
// Anything that cannot be made (read-only installation, a compiler fault) is left out, and the
// applet compiles the plain way.
PrebuiltPieces preparePrebuilt(const std::string& currentDir);

// Drops the prefix, after the compiler refused it; the next compile makes it again.
void discardPrebuilt(const PrebuiltPieces& pieces);

// The compiler said a precompiled header was unusable (moved or changed headers).
bool reportsStalePrefix(const std::string& compilerOutput);

}  // namespace ruvo
