#pragma once
// The compiler and formatter commands. The Windows line is the contract of the tool layout;
// the POSIX profile passes the same pieces in the same order as an argument vector (no shell
// sees them), less what only the Windows toolset needs.

#include <string>
#include <vector>

namespace ruvo {

struct CompileCommandInput {
    std::string currentDir;  // the host's working directory: the tool tree hangs below it
    unsigned jobs;           // logical processors, for the link-time optimisation jobs
    std::string codePath;    // ends in a separator
    std::string outputPath;  // the module file
};

// What the installation has made once for every applet (build/prebuilt.h); empty: none.
struct PrebuiltPieces {
    std::string prefixPch;   // the applet headers, precompiled
    std::string baseObject;  // RuvoBase.cpp, compiled
};

std::string windowsCompileCommand(const CompileCommandInput& in);
// With prebuilt pieces, the prefix is taken precompiled and RuvoBase linked as an object.
std::vector<std::string> posixCompileArguments(const CompileCommandInput& in,
                                               const PrebuiltPieces& prebuilt = PrebuiltPieces());
// The compiler and the flags every applet translation unit gets, and the include directories.
std::vector<std::string> posixCompilerFlags(const std::string& currentDir, unsigned jobs);
std::vector<std::string> posixIncludeArguments(const std::string& currentDir);
std::string windowsFormatCommand(const std::string& currentDir, const std::string& path);
std::vector<std::string> posixFormatArguments(const std::string& currentDir, const std::string& path);
// One line for the log: arguments apart by blanks, quoted where a blank or a shell character
// would make the line read differently. Only for reading, never run.
std::string renderArguments(const std::vector<std::string>& argv);

}  // namespace ruvo
