// "ruvo demo": the whole road on a temporary project, from any working directory.

#include <cstdio>
#include <filesystem>
#include <system_error>
#include <unistd.h>

#include "RuvoManager/ruvo_sdk.h"
#include "apps/ruvo/cli.h"

namespace cli {
namespace {

std::string makeTempProject() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "ruvo_demo_XXXXXX").string();
    if (::mkdtemp(&tmpl[0]) == nullptr) throw std::runtime_error("cannot create a temporary project");
    return tmpl;
}

int cmdDemo(const Args& args) {
    if (!args.empty()) throw UsageError("takes no arguments");
    const std::string project = makeTempProject();
    struct Cleanup {
        std::string dir;
        ~Cleanup() {
            std::error_code ec;
            std::filesystem::remove_all(dir, ec);
        }
    } cleanup{project};

    std::printf("project    %s\n", project.c_str());
    ruvo_sdk::initRuvo(project.c_str());
    if (ruvo_sdk::createRuvo("responder", AT_TOOL) != 0) throw std::runtime_error("createRuvo failed");
    MpRuvo* applet = RuvoManager::getInstance().getApplet("responder");
    applet->insertRecvCANId("request", 0x7E0);
    applet->setFuncBodyCode("on_can_rx_request", "// answer on 0x7E8\n");
    if (ruvo_sdk::serilize("responder", "") != 0) throw std::runtime_error("serilize failed");

    char name[128] = {0};
    ruvo_sdk::destroyRuvo("responder");
    if (ruvo_sdk::loadRuvo(configPath(project, "responder").c_str(), name) != 0) {
        throw std::runtime_error("loadRuvo failed");
    }
    std::printf("saved and reloaded %s\n\n", configPath(project, "responder").c_str());
    showApplet(name);
    return 0;
}

Registrar rDemo({"demo", "", "build a sample applet in a temporary project and show it", cmdDemo});

}  // namespace
}  // namespace cli
