// "ruvo convert": an applet's generated code as a device script package.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "RuvoManager/ruvo_sdk.h"
#include "apps/ruvo/cli.h"
#include "platform/console.h"

namespace cli {
namespace {

namespace fs = std::filesystem;

bool within(const fs::path& inner, const fs::path& outer) {
    auto i = inner.begin();
    for (auto o = outer.begin(); o != outer.end(); ++o, ++i) {
        if (o->empty()) continue;
        if (i == inner.end() || *i != *o) return false;
    }
    return true;
}

int cmdConvert(const Args& args) {
    if (args.size() != 3) throw UsageError("expected PROJECT APPLET OUTDIR");
    const std::string applet = openApplet(args[0], args[1]);
    MpRuvo* a = RuvoManager::getInstance().getApplet(applet);
    const fs::path code = fs::weakly_canonical(a->getCodePath());
    const fs::path out = fs::weakly_canonical(userPath(args[2]));
    if (within(out, code)) {
        throw std::runtime_error(out.string() + " lies inside the applet's code directory " + code.string());
    }
    if (a->hasCycleFuncDepends()) {
        throw std::runtime_error("the functions of \"" + applet + "\" depend on each other in a circle");
    }
    // The device runs one script per function file; the single file is not packed.
    if (ruvo_sdk::generateCodeFiles(applet.c_str(), "") != 0) throw std::runtime_error("cannot write the generated files");
    std::vector<std::string> written;
    std::string error;
    int rc;
    {
        // The converter notes each rewrite on stdout, a host's debug console.
        const platform::StdoutDiverted quiet(std::getenv("RUVO_VERBOSE") != nullptr);
        rc = ruvo_sdk::transCCodeToVciCode(applet.c_str(), out.string().c_str(), nullptr, 0, &written, &error);
    }
    if (rc != 0) throw std::runtime_error("cannot convert \"" + applet + "\": " + error);
    for (const std::string& w : written) std::printf("%s\n", (out / w).string().c_str());
    return 0;
}

Registrar rConvert({"convert", "PROJECT APPLET OUTDIR",
                    "convert the applet into a device script package in OUTDIR and list it", cmdConvert,
                    "Generates the applet's sources (one file per function), converts them to the\n"
                    "device's script dialect and writes the package: OUTDIR/main.cpp starts the\n"
                    "applet, OUTDIR/APPLET/ holds one converted script per file. The package's\n"
                    "earlier .c/.h/.cpp/.dll/.so/.csv/.s19/.bin/.app/.hex files there are replaced;\n"
                    "a failed conversion leaves OUTDIR as it was. OUTDIR may not lie inside the\n"
                    "applet's code directory. RUVO_VERBOSE=1 shows the converter's notes."});

}  // namespace
}  // namespace cli
