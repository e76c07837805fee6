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

std::string windowsCompileCommand(const CompileCommandInput& in);
std::vector<std::string> posixCompileArguments(const CompileCommandInput& in);
std::string windowsFormatCommand(const std::string& currentDir, const std::string& path);
std::vector<std::string> posixFormatArguments(const std::string& currentDir, const std::string& path);
// One line for the log: arguments apart by blanks, quoted where a blank or a shell character
// would make the line read differently. Only for reading, never run.
std::string renderArguments(const std::vector<std::string>& argv);

}  // namespace ruvo
