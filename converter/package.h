#pragma once
// A device script package: an applet's generated sources converted and written into a target
// directory. Everything is converted in memory first and written into a directory beside the
// target, then moved into place, so a failed conversion leaves the target as it was.
//
// Layout: TARGET/main.cpp starts the applet, holding the variable definitions and running
// "/script/APPLET/main.cpp"; the converted files lie in TARGET/APPLET/, as on the device under
// "/script/".

#include <string>
#include <vector>

namespace conv {

struct PackageRequest {
    std::string appletName;
    std::string mainPort;
    std::string codePath;               // the applet's generated sources
    std::vector<std::string> lines;     // handed to the converter as given
    std::string templateDir = "Ruvo/code_template/functions";
};

struct PackageResult {
    std::vector<std::string> written;  // paths relative to the target, in writing order
    std::string error;                 // why nothing was written
};

// 0, or -1 with result.error; the target is created when missing.
int writeVciPackage(const PackageRequest& request, const std::string& targetDir, PackageResult& result);

// What a package takes from the code directory and what it replaces in the target.
bool isSourceFile(const std::string& fileName);
bool isPackedFile(const std::string& fileName);

}  // namespace conv
