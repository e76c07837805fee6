#pragma once
// Compiler diagnostics of the generated single file, told as places in the applet the author
// wrote: "PATH/singleapp.cpp:N:C: error: ..." becomes "APPLET:FUNCTION:LINE: error: ..." where
// LINE counts from the first line of that function's body. Lines outside every body (includes,
// declarations, init) become "APPLET:singleapp.cpp:N: ...". Other files' lines are left alone.

#include <string>
#include <vector>

#include "generator/CppCodeGenerator.h"

namespace cli {

class CompileMessages {
public:
    // `singleFile` is the path the compiler was given; `bodies` as the generator reports them.
    CompileMessages(std::string applet, std::string singleFile,
                    std::vector<CppCodeGenerator::BodyLines> bodies);

    std::string map(const std::string& compilerText) const;

private:
    std::string mapLine(const std::string& line) const;
    // "FUNCTION:LINE" or "singleapp.cpp:N".
    std::string place(long generatedLine) const;

    std::string applet;
    std::string singleFile;
    std::vector<CppCodeGenerator::BodyLines> bodies;  // in line order
};

}  // namespace cli
