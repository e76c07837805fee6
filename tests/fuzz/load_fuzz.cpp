// Fuzz target for the applet file loader. Every input is written as an applet's config file
// and loaded three ways: into a fresh applet, over a living applet through importRuvo, and
// through loadRuvo. A fault in the file may only give -1 (or the documented exceptions of the
// model); the living applet must come out of a refused import exactly as it went in.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"
#include "model/json_util.h"
#include "test_support.h"

namespace {

struct Scratch {
    testing_support::TempDir scratch;
    std::string dir;
    std::string file;
    Scratch() {
        if (scratch.path().empty()) std::abort();
        dir = scratch.path();
        std::filesystem::create_directories(dir + "/project/fuzz_code");
        file = dir + "/project/fuzz_code/appletCfg.ruvo";
        log_interface::setEcho(false);
        ruvo_sdk::initRuvo((dir + "/project").c_str());
    }
};

Scratch& scratch() {
    static Scratch s;
    return s;
}

// What a refused import must leave alone.
struct Snapshot {
    std::string name;
    int type;
    int editType;
    size_t funcs, vars;
    std::map<std::string, u64> recv, send, pre, timers;
    std::map<std::string, std::list<std::string>> keys;
    std::string mainBody;

    explicit Snapshot(MpRuvo& a)
        : name(a.getMpName()), type(a.getType()), editType(a.getEditType()),
          funcs(a.getFuncCount()), vars(a.getGlobalVarList().size()), recv(a.getRecvCANId()),
          send(a.getSendCANId()), pre(a.getPreSendCANId()), timers(a.getTimers()),
          keys(a.getKeyboardEvents()), mainBody(a.findFunc("on_can_rx_req").getBodyCode()) {}
    bool operator==(const Snapshot& o) const {
        return name == o.name && type == o.type && editType == o.editType && funcs == o.funcs &&
               vars == o.vars && recv == o.recv && send == o.send && pre == o.pre &&
               timers == o.timers && keys == o.keys && mainBody == o.mainBody;
    }
};

void livingApplet() {
    if (ruvo_sdk::isRuvoExist("living") == 0) ruvo_sdk::destroyRuvo("living");
    ruvo_sdk::createRuvo("living", AT_TOOL);
    ruvo_sdk::insertRecvCANId("living", "req", 0x7E0);
    const char body[] = "++n;";
    ruvo_sdk::setRuvoFuncCodeByName("living", "on_can_rx_req", body, sizeof(body) - 1);
    ruvo_sdk::insertTimer("living", "tick", 10);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Scratch& s = scratch();
    {
        std::ofstream out(s.file, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }

    // The model alone: only the documented exceptions may leave it.
    try {
        MpRuvo fresh;
        fresh.deserilize(s.file);
    } catch (const ruvo::ConfigError&) {
    } catch (const std::invalid_argument&) {
    } catch (const std::out_of_range&) {
    }

    // Over a living applet: a refusal leaves it as it was.
    livingApplet();
    MpRuvo* living = RuvoManager::getInstance().getApplet("living");
    const Snapshot before(*living);
    if (ruvo_sdk::importRuvo("living", s.file.c_str()) != 0) {
        if (!(Snapshot(*living) == before)) {
            std::fprintf(stderr, "a refused import changed the applet\n");
            std::abort();
        }
    }

    // Through the SDK, as the host loads a project.
    char name[128] = "";
    if (ruvo_sdk::loadRuvo(s.file.c_str(), name) == 0) ruvo_sdk::destroyRuvo(name);
    for (const auto& n : RuvoManager::getInstance().getAppletNameList()) {
        ruvo_sdk::destroyRuvo(n.c_str());
    }
    log_interface::takeRecords();
    return 0;
}
