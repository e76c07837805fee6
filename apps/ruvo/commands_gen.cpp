// "ruvo gen": write an applet's generated sources and list them.

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "RuvoManager/ruvo_sdk.h"
#include "apps/ruvo/cli.h"

namespace cli {
namespace {

int cmdGen(const Args& args) {
    if (args.size() != 2 && args.size() != 4) throw UsageError("expected PROJECT APPLET [--layout L]");
    std::string layout = "single";
    if (args.size() == 4) {
        if (args[2] != "--layout") throw UsageError("unknown option " + args[2]);
        layout = args[3];
    }
    const std::string applet = openApplet(args[0], args[1]);
    int (*write)(const char*, const char*) = nullptr;
    if (layout == "single") write = ruvo_sdk::generateSingleCodeFile;
    else if (layout == "multi") write = ruvo_sdk::generateCodeFiles;
    else if (layout == "combined") write = ruvo_sdk::generateCombineCodeFile;
    else if (layout == "both") write = ruvo_sdk::generateSingleAndMultiCodeFiles;
    else throw UsageError("layout must be single, multi, combined or both");

    MpRuvo* a = RuvoManager::getInstance().getApplet(applet);
    if (a->hasCycleFuncDepends()) {
        throw std::runtime_error("the functions of \"" + applet + "\" depend on each other in a circle");
    }
    if (write(applet.c_str(), "") != 0) throw std::runtime_error("cannot write the generated files");
    std::vector<std::string> files;
    for (const auto& e : std::filesystem::directory_iterator(a->getCodePath())) {
        const std::string ext = e.path().extension().string();
        if (e.is_regular_file() && (ext == ".h" || ext == ".cpp" || ext == ".c")) {
            files.push_back(e.path().string());
        }
    }
    std::sort(files.begin(), files.end());
    if (files.empty() || (layout != "multi" && files.size() == 1)) {
        std::printf("note: no main-run function, so no singleapp.cpp (ruvo func ... mainRun --create 0)\n");
    }
    for (const auto& f : files) std::printf("%s\n", f.c_str());
    return 0;
}

Registrar rGen({"gen", "PROJECT APPLET [--layout single|multi|combined|both]",
                "write the applet's generated sources (default: single file) and list them", cmdGen,
                "Writes the generated sources into PROJECT/APPLET_code/ and lists them: single\n"
                "is singleapp.cpp and resource.h, multi one NAME.h/NAME.cpp per function, both\n"
                "the two, combined the sequence roots with their dependencies plus the single\n"
                "file. Stale .h/.cpp/.c files there are removed first."});

}  // namespace
}  // namespace cli
