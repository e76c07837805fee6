#pragma once
// The compiler and formatter command lines. The Windows line is the contract of the tool
// layout; the POSIX profile has the same pieces in the same order, less what only the
// Windows toolset needs.

#include <string>

namespace ruvo {

struct CompileCommandInput {
    std::string currentDir;  // the host's working directory: the tool tree hangs below it
    unsigned jobs;           // logical processors, for the link-time optimisation jobs
    std::string codePath;    // ends in a separator
    std::string outputPath;  // the module file
};

std::string windowsCompileCommand(const CompileCommandInput& in);
std::string posixCompileCommand(const CompileCommandInput& in);
std::string windowsFormatCommand(const std::string& currentDir, const std::string& path);
std::string posixFormatCommand(const std::string& currentDir, const std::string& path);

}  // namespace ruvo
