// "ruvo convert-log IN OUT": a CAN log from one format into another, checked whole before the
// output is written.

#include <cstdio>
#include <filesystem>
#include <string>

#include "apps/ruvo/can_log.h"
#include "apps/ruvo/cli.h"

namespace cli {
namespace {

int cmdConvertLog(const Args& args) {
    for (const auto& a : args) {
        if (a.rfind("-", 0) == 0 && a.size() > 1) throw UsageError("unknown option " + a);
    }
    if (args.size() != 2) throw UsageError("expected IN and OUT");
    const std::string in = userPath(args[0]);
    const std::string out = userPath(args[1]);
    canlog::formatOf(in);
    canlog::formatOf(out);
    std::error_code ec;
    if (std::filesystem::equivalent(in, out, ec)) throw std::runtime_error(args[1] + " is the log being converted");
    canlog::ReadResult log;
    try {
        log = canlog::read(in, args[0], true);
    } catch (const canlog::LogError& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    canlog::write(out, log.frames);
    std::printf("%zu frames (%zu error frames) from %s to %s\n", log.frames.size(), log.skipped, args[0].c_str(),
                args[1].c_str());
    return 0;
}

Registrar rConvertLog({"convert-log", "IN OUT", "convert a CAN log between candump (.log), ASC (.asc) and BLF (.blf)",
                       cmdConvertLog,
                       "The format of each file is chosen by its suffix, in any case. IN is read and checked\n"
                       "whole first (a malformed record stops with IN:POSITION: reason and nothing is\n"
                       "written); OUT replaces any file of that name only once it is complete. Frames\n"
                       "keep their time (to the microsecond), channel, direction, id, flags and data,\n"
                       "error frames included; ASC and BLF number channels, so names come back as canN.",
                       true});

}  // namespace
}  // namespace cli
