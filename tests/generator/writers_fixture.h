#pragma once
// What the tests of the generated-file writers share: an applet writing into a scratch
// directory, listings and snapshots of what is there, and the errors logged.

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/log_interface.h"
#include "model/MpRuvo.h"
#include "test_support.h"

namespace writers_fixture {

using testing_support::TempDir;
using testing_support::slurp;
namespace fs = std::filesystem;

inline std::unique_ptr<MpRuvo> appletIn(const TempDir& dir) {
    auto a = std::make_unique<MpRuvo>();
    a->setType(AT_TOOL);
    a->setMpName("realistic");
    a->setCodePath(dir.path() + "/");
    return a;
}

inline std::vector<std::string> filesIn(const std::string& dir) {
    std::vector<std::string> out;
    for (const auto& e : fs::directory_iterator(dir)) out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
}

// Every entry below `dir` with its text; links as "-> target", never followed.
inline std::map<std::string, std::string> snapshot(const std::string& dir) {
    std::map<std::string, std::string> out;
    for (auto it = fs::recursive_directory_iterator(dir); it != fs::recursive_directory_iterator(); ++it) {
        const std::string rel = fs::relative(it->path(), dir).generic_string();
        if (it->is_symlink()) {
            out[rel] = "-> " + fs::read_symlink(it->path()).string();
        } else if (it->is_regular_file()) {
            out[rel] = slurp(it->path().string());
        } else {
            out[rel] = "<dir>";
        }
    }
    return out;
}

inline RuvoFunction selfDefined(MpRuvo& a, const std::string& name, const std::string& body) {
    RuvoFunction f = a.createFunc(name, RFT_SELF_DEFINE, {name, "s32 x"});
    f.setBodyCode(body);
    return f;
}

// The error lines logged since the last call.
inline std::string errorLines() {
    std::string lines;
    for (const auto& r : log_interface::takeRecords()) {
        if (r.level == log_interface::Level::Error) lines += r.text + "\n";
    }
    return lines;
}


}  // namespace writers_fixture
