// "ruvo run": replay a CAN log through compiled applets; "ruvo demo": the whole road.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <unistd.h>

#include "RuvoManager/ruvo_sdk.h"
#include "apps/ruvo/cli.h"
#include "apps/ruvo/replay.h"

namespace cli {
namespace {

void loadModule(const std::string& applet) {
    if (ruvo_sdk::loadRuvoMp(applet.c_str()) != 0) {
        MpRuvo* a = RuvoManager::getInstance().getApplet(applet);
        throw std::runtime_error("cannot load the module of \"" + applet + "\" (" +
                                 (a ? a->moduleError() : std::string("no applet")) +
                                 "); compile it first: ruvo compile PROJECT " + applet);
    }
}

void printFrames(const std::vector<canlog::Frame>& frames, std::FILE* out) {
    for (const auto& f : frames) std::fprintf(out, "%s\n", canlog::formatLine(".log", f).c_str());
}

int cmdRun(const Args& args) {
    std::vector<std::string> applets;
    std::string replayFile, outFile;
    for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--replay" || args[i] == "--out") {
            if (i + 1 >= args.size()) throw UsageError(args[i] + " needs a file");
            (args[i] == "--replay" ? replayFile : outFile) = userPath(args[i + 1]);
            ++i;
        } else if (args[i].rfind("--", 0) == 0) {
            throw UsageError("unknown option " + args[i]);
        } else {
            applets.push_back(args[i]);
        }
    }
    if (args.empty() || applets.empty() || replayFile.empty()) {
        throw UsageError("expected PROJECT APPLET... --replay FILE.log");
    }
    const canlog::ReadResult input = canlog::read(replayFile);
    for (const auto& a : applets) loadModule(openApplet(args[0], a));
    const ReplayResult result = replay(input.frames);
    if (outFile.empty()) {
        printFrames(result.sent, stdout);
    } else {
        canlog::write(outFile, result.sent);
    }
    std::fprintf(stderr, "replayed %zu frames (%zu lines skipped); the applets sent %zu%s%s\n",
                 result.replayed, input.skipped, result.sent.size(), outFile.empty() ? "" : " to ",
                 outFile.c_str());
    return 0;
}

const char* const kDemoLog =
    "(1700000000.000000) can0 7E0#0210030000000000\n"
    "(1700000000.010000) can0 123#1122334455667788\n"
    "(1700000000.020000) can0 7E0#0211010000000000\n"
    "(1700000000.030000) can1 7DF#0201000000000000\n"
    "(1700000000.040000) can0 7E0#023E000000000000\n";

void body(const char* applet, const char* func, const std::string& code) {
    if (ruvo_sdk::setRuvoFuncCodeByName(applet, func, code.data(), static_cast<unsigned>(code.size())) != 0) {
        throw std::runtime_error(std::string("no function ") + func);
    }
}

int cmdDemo(const Args& args) {
    if (!args.empty()) throw UsageError("takes no arguments");
    std::string tmpl = (std::filesystem::temp_directory_path() / "ruvo_demo_XXXXXX").string();
    if (::mkdtemp(&tmpl[0]) == nullptr) throw std::runtime_error("cannot create a temporary project");
    const std::string project = tmpl;
    struct Cleanup {
        std::string dir;
        ~Cleanup() {
            std::error_code ec;
            std::filesystem::remove_all(dir, ec);
        }
    } cleanup{project};

    const char* a = "responder";
    std::printf("1. applet \"%s\" in %s: answers diagnostic requests on 0x7E0 with 0x7E8\n", a, project.c_str());
    ruvo_sdk::initRuvo(project.c_str());
    ruvo_sdk::createRuvo(a, AT_TOOL);
    ruvo_sdk::genDefaultMainFunction(a);
    ruvo_sdk::createRuvoFunc(a, "global_define", RFT_GLOBAL_DEFINE, nullptr, 0);
    body(a, "global_define", "static int g_replies = 0;");
    ruvo_sdk::createRuvoFunc(a, "on_start_demo", RFT_PROGRAM_START, nullptr, 0);
    body(a, "on_start_demo", "clog.info(\"responder: measurement started\");");
    ruvo_sdk::createRuvoFunc(a, "on_stop_demo", RFT_PROGRAM_STOP, nullptr, 0);
    body(a, "on_stop_demo", "clog.info(\"responder: %d replies sent\", g_replies);");
    ruvo_sdk::insertRecvCANId(a, "request", 0x7E0);
    body(a, "on_can_rx_request",
         "KelnCan reply;\n"
         "com.init_can(0x7E8, 8, &reply);\n"
         "reply.canNo = ACAN->canNo;\n"
         "reply.FData[0] = 0x02;\n"
         "reply.FData[1] = ACAN->FData[1] + 0x40;  // positive response\n"
         "reply.FData[2] = ACAN->FData[2];\n"
         "com.send_can_async(&reply);");
    ruvo_sdk::insertPreSendCANId(a, "stamp", 0x7E8);
    body(a, "on_can_pretx_stamp", "ACAN->FData[7] = 0xAA;  // rewritten on its way out");
    ruvo_sdk::insertSendCANId(a, "sent", 0x7E8);
    body(a, "on_can_tx_sent", "++g_replies;");

    std::printf("2. compiling ...\n");
    std::fflush(stdout);
    const CompileOutcome o = compileApplet(a, false);
    if (o.result != CR_SUCCESS) {
        std::printf("%s", o.text.c_str());
        throw std::runtime_error("the demo applet did not compile");
    }
    std::printf("   module built in %llu ms\n", o.ms);
    loadModule(a);

    const std::string logPath = project + "/input.log";
    std::ofstream(logPath) << kDemoLog;
    std::printf("3. replaying %s:\n%s", logPath.c_str(), kDemoLog);
    std::fflush(stdout);
    const ReplayResult result = replay(canlog::read(logPath).frames);
    std::printf("4. the applet sent %zu frames:\n", result.sent.size());
    printFrames(result.sent, stdout);
    ruvo_sdk::unloadRuvoMp(a);
    return 0;
}

Registrar rRun({"run", "PROJECT APPLET... --replay FILE.log [--out FILE.log]",
                "replay a candump log through compiled applets and log every frame they send", cmdRun});
Registrar rDemo({"demo", "", "the whole road on a temporary project: create, compile, replay, show", cmdDemo});

}  // namespace
}  // namespace cli
