// "ruvo run": replay a CAN log through compiled applets; "ruvo demo": the whole road.

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <system_error>

#include "RuvoManager/ruvo_sdk.h"
#include "apps/ruvo/applet_runs.h"
#include "apps/ruvo/bus_databases.h"
#include "apps/ruvo/cli.h"
#include "apps/ruvo/replay.h"
#include "apps/ruvo/bus_peers.h"
#include "host/workstation.h"
#include "apps/ruvo/run_support.h"
#include "platform/console.h"
#include "platform/stop_request.h"
#include "platform/temp_dir.h"
#include "apps/ruvo/terminal_ui.h"
#include "apps/ruvo/vars_file.h"

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

// The frames the applets send, written through to the file (in the format of its suffix) or
// stdout as they go out, so that a reader sees them live and an interrupted replay leaves whole
// lines. Never throws: it runs inside the applets' sends; a failed write is reported after the
// replay.
class FrameOutput {
public:
    // Empty path: stdout.
    explicit FrameOutput(const std::string& path)
        : path_(path), out_(path.empty() ? canlog::Writer(stdout, ".log", true) : canlog::Writer(path, true)) {}
    FrameOutput(const FrameOutput&) = delete;
    FrameOutput& operator=(const FrameOutput&) = delete;

    void write(const canlog::Frame& f) noexcept {
        if (!error_.empty()) return;
        try {
            out_.write(f);
        } catch (const std::exception& e) {
            error_ = e.what();
        }
    }
    // Ends and closes the log; raises if any write failed.
    void finish() {
        if (error_.empty()) {
            try {
                out_.finish();
            } catch (const std::exception& e) {
                error_ = e.what();
            }
        }
        if (!error_.empty()) throw std::runtime_error(error_);
    }
    bool failed() const { return !error_.empty(); }

private:
    std::string path_;
    canlog::Writer out_;
    std::string error_;
};

int cmdRun(const Args& args) {
    std::vector<std::string> applets, ecuFiles;
    std::string replayFile, outFile, replayShown, varsFile, varsShown, varsOut, logPath;
    std::string answer = "ok";
    double seconds = -1;
    bool runMains = false;
    std::vector<platform::KeyStroke> keys;
    std::vector<DbcSpec> dbcSpecs;
    BusPeers peers;
    for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--replay" || args[i] == "--out") {
            if (i + 1 >= args.size()) throw UsageError(args[i] + " needs a file");
            (args[i] == "--replay" ? replayFile : outFile) = userPath(args[i + 1]);
            if (args[i] == "--replay") replayShown = args[i + 1];
            ++i;
        } else if (args[i] == "--for") {
            if (i + 1 >= args.size()) throw UsageError("--for needs a number of seconds");
            seconds = parseSeconds(args[++i]);
        } else if (args[i] == "--vars" || args[i] == "--vars-out") {
            if (i + 1 >= args.size()) throw UsageError(args[i] + " needs a file");
            if (args[i] == "--vars") {
                varsShown = args[i + 1];
                varsFile = userPath(args[i + 1]);
            } else {
                varsOut = userPath(args[i + 1]);
            }
            ++i;
        } else if (args[i] == "--answer") {
            if (i + 1 >= args.size()) throw UsageError("--answer needs ok, cancel, yes or no");
            answer = args[++i];
            const std::string problem = TerminalUi::answerProblem(answer);
            if (!problem.empty()) throw UsageError(problem);
        } else if (args[i] == "--log") {
            if (i + 1 >= args.size()) throw UsageError("--log needs a file");
            logPath = userPath(args[++i]);
        } else if (args[i] == "--main") {
            runMains = true;
        } else if (args[i] == "--keys") {
            if (i + 1 >= args.size()) throw UsageError("--keys needs strokes such as \"Ctrl R,A\"");
            keys = parseKeyStrokes(args[++i]);
        } else if (args[i] == "--ecu") {
            if (i + 1 >= args.size()) throw UsageError("--ecu needs an ECU file");
            ecuFiles.push_back(args[++i]);
        } else if (args[i] == "--xcp-slave") {
            if (i + 1 >= args.size()) throw UsageError("--xcp-slave needs an XCP slave file");
            peers.addXcpSlave(args[++i]);
        } else if (args[i] == "--listen") {
            if (i + 1 >= args.size()) throw UsageError("--listen needs [HOST:]PORT");
            peers.setListen(args[++i]);
        } else if (args[i] == "--dbc") {
            if (i + 1 >= args.size()) throw UsageError("--dbc needs FILE.dbc@CHANNEL");
            dbcSpecs.push_back(parseDbcSpec(args[++i]));
        } else if (args[i].rfind("--", 0) == 0) {
            throw UsageError("unknown option " + args[i]);
        } else {
            applets.push_back(args[i]);
        }
    }
    if (args.empty() || applets.empty()) {
        throw UsageError("expected PROJECT APPLET... [--replay LOG] [--out LOG] [--ecu ECU.json]... "
                         "[--xcp-slave SLAVE.json]... [--listen [HOST:]PORT] [--dbc FILE.dbc@CHANNEL]... [--vars FILE.json] [--vars-out FILE.json] [--answer WORD] [--log FILE] "
                         "[--for SECONDS] [--main] [--keys STROKES]");
    }
    if (!replayFile.empty() && seconds >= 0) throw UsageError("--for is for a live measurement, not with --replay");
    const platform::StopRequests signals;
    if (!outFile.empty()) {
        canlog::formatOf(outFile);
        std::error_code ec;
        if (!replayFile.empty() && std::filesystem::equivalent(replayFile, outFile, ec)) {
            throw std::runtime_error("--out " + outFile + " is the log being replayed");
        }
    }
    canlog::ReadResult input;
    if (!replayFile.empty()) {
        try {
            // The whole log is checked before anything reaches the bus.
            input = canlog::read(replayFile, replayShown);
        } catch (const canlog::LogError& e) {
            std::fprintf(stderr, "%s\n", e.what());
            return 1;
        }
    }
    if (!varsFile.empty()) {
        // Checked whole before anything starts; the variables are there for the start handlers.
        try {
            const size_t n = loadVariables(varsFile, varsShown);
            std::fprintf(stderr, "%zu variables loaded from %s\n", n, varsShown.c_str());
        } catch (const VarsFileError& e) {
            std::fprintf(stderr, "%s\n", e.what());
            return 1;
        }
    }
    if (!dbcSpecs.empty()) loadWorkstationDatabases(dbcSpecs);
    for (const auto& a : applets) loadModule(openApplet(args[0], a));
    if (!peers.startEcusOrReport(ecuFiles)) return 1;
    peers.startServer();

    struct LogFile {
        std::FILE* f = nullptr;
        ~LogFile() {
            if (f != nullptr) std::fclose(f);
        }
    } logFile;
    if (!logPath.empty()) {
        logFile.f = std::fopen(logPath.c_str(), "w");
        if (logFile.f == nullptr) throw std::runtime_error("cannot write " + logPath + ": " + std::strerror(errno));
    }
    // Applet log lines on stdout, unless the frames are written there.
    const TerminalUi ui(answer, outFile.empty() ? stderr : stdout, logFile.f, applets);

    FrameOutput output(outFile);
    const auto write = [&](const canlog::Frame& f) { output.write(f); };
    const auto stopRequested = [&] { return signals.received() != 0 || output.failed(); };
    const FaultReports faults;
    MainRuns mains(runMains ? applets : std::vector<std::string>());
    // Keys typed on the terminal reach the shortcut handlers in a live run; boxes then take
    // --answer, since the keys own the terminal.
    platform::TerminalKeySource typed;
    if (replayFile.empty() && keys.empty() && platform::isTerminal(0) && anyKeyBindings(applets)) {
        std::string problem;
        if (typed.start(0, problem)) {
            TerminalUi::keysOwnTerminal(true);
            std::fprintf(stderr, "keys typed here go to the applets' shortcuts\n");
        } else {
            std::fprintf(stderr, "keys typed here are not read: %s\n", problem.c_str());
        }
    }
    RunHooks hooks;
    hooks.started = [&] {
        mains.start();
        if (!keys.empty()) pressKeys(keys);
    };
    hooks.stopping = [&] {
        mains.stop();  // by force, before the measurement stops
        typed.stop();
        TerminalUi::keysOwnTerminal(false);
    };
    // 3 says an applet faulted, unless a signal ended the run.
    const auto status = [] { return FaultReports::count() > 0 ? 3 : 0; };
    if (replayFile.empty()) {
        std::fprintf(stderr, "measurement running %s\n",
                     seconds < 0 ? "until SIGINT or SIGTERM" : ("for " + std::to_string(seconds) + " s").c_str());
        const ReplayResult result = runLive(seconds, write, stopRequested, hooks);
        ruvo_sdk::interruptRuvoFuture();  // the applets' cyclic sends end with the run
        if (!varsOut.empty()) saveVariables(varsOut);
        output.finish();
        const std::string summary = "the applets sent " + std::to_string(result.sent) + (outFile.empty() ? "" : " to " + outFile);
        const int signal = signals.received();
        if (signal != 0) {
            std::fprintf(stderr, "interrupted by %s: %s\n", platform::StopRequests::name(signal), summary.c_str());
            return 128 + signal;
        }
        std::fprintf(stderr, "measurement ended: %s\n", summary.c_str());
        return status();
    }
    const size_t total = input.frames.size();
    const ReplayResult result = replay(std::move(input.frames), write, stopRequested, hooks);
    ruvo_sdk::interruptRuvoFuture();
    if (!varsOut.empty()) saveVariables(varsOut);
    output.finish();

    std::string summary = "replayed " + std::to_string(result.replayed) + " frames (" +
                          std::to_string(input.skipped) + " error frames skipped";
    if (input.outOfOrder > 0) summary += ", " + std::to_string(input.outOfOrder) + " put in time order";
    summary += "); the applets sent " + std::to_string(result.sent) + (outFile.empty() ? "" : " to " + outFile);
    const int signal = signals.received();
    if (signal != 0) {
        std::fprintf(stderr, "interrupted by %s after %zu of %zu frames: %s\n",
                     platform::StopRequests::name(signal), result.replayed, total, summary.c_str());
        return 128 + signal;
    }
    std::fprintf(stderr, "%s\n", summary.c_str());
    return status();
}

int cmdExec(const Args& args) {
    if (args.size() != 2) throw UsageError("expected PROJECT APPLET");
    loadModule(openApplet(args[0], args[1]));
    const TerminalUi ui("ok", stdout, nullptr, {args[1]});
    return runMainSync(args[1]) ? 0 : 1;
}

const char* const kDemoLog =
    "(1700000000.000000) can0 7E0#0210030000000000\n"
    "(1700000000.010000) can0 123#1122334455667788\n"
    "(1700000000.020000) can0 7E0#0211010000000000\n"
    "(1700000000.030000) can1 7DF#0201000000000000\n"
    "(1700000000.040000) can0 7E0#023E000000000000\n";

// What the demo's frames mean: the diagnostic requests and replies, and the body frame.
const char* const kDemoDbc =
    "VERSION \"\"\nBU_: Tester Responder Body\n"
    "BO_ 2016 DiagRequest: 8 Tester\n"
    " SG_ Length : 0|8@1+ (1,0) [0|7] \"bytes\" Responder\n"
    " SG_ Service : 8|8@1+ (1,0) [0|255] \"\" Responder\n"
    " SG_ Parameter : 16|8@1+ (1,0) [0|255] \"\" Responder\n"
    "BO_ 2015 FunctionalRequest: 8 Tester\n"
    " SG_ Length : 0|8@1+ (1,0) [0|7] \"bytes\" Responder\n"
    " SG_ Service : 8|8@1+ (1,0) [0|255] \"\" Responder\n"
    "BO_ 2024 DiagReply: 8 Responder\n"
    " SG_ Length : 0|8@1+ (1,0) [0|7] \"bytes\" Tester\n"
    " SG_ Service : 8|8@1+ (1,0) [0|255] \"\" Tester\n"
    " SG_ Parameter : 16|8@1+ (1,0) [0|255] \"\" Tester\n"
    " SG_ Stamp : 56|8@1+ (1,0) [0|255] \"\" Tester\n"
    "BO_ 291 BodyStatus: 8 Body\n"
    " SG_ DoorsOpen : 0|4@1+ (1,0) [0|15] \"\" Tester\n"
    " SG_ Temperature : 8|8@1+ (0.5,-40) [-40|87.5] \"degC\" Tester\n"
    "VAL_ 2016 Service 16 \"session control\" 17 \"ECU reset\" 62 \"tester present\";\n"
    "VAL_ 2024 Service 80 \"session control reply\" 81 \"ECU reset reply\" 126 \"tester present reply\";\n";

void body(const char* applet, const char* func, const std::string& code) {
    if (ruvo_sdk::setRuvoFuncCodeByName(applet, func, code.data(), static_cast<unsigned>(code.size())) != 0) {
        throw std::runtime_error(std::string("no function ") + func);
    }
}

// A simulated ECU in the demo: what it answers on 0x7E0.
const char* const kDemoEcu = R"({
  "name": "engine",
  "addressing": {"physical_id": "7E0", "functional_id": "7DF", "response_id": "7E8", "fill": "CC",
                 "block_size": 4, "st_min": 1},
  "sessions": [{"id": 1}, {"id": 3}],
  "dids": [{"id": "F190", "ascii": "WRUVO0SIMULATED01"}]
})";

// An engine controller reached over XCP in the demo: its speed is measured at 0x1000.
const char* const kDemoXcpSlave = R"({
  "name": "engine_xcp",
  "can": {"channel": 0, "master_id": "0x700", "slave_id": "0x701", "broadcast_id": "0x7FF"},
  "memory": [{"name": "engine_speed", "address": "0x1000", "size": 2, "bytes": "B8 0B"}]
})";

// Part two of the demo: an applet diagnoses a simulated ECU over ISO-TP on the bus.
void diagnoseDemoEcu(const std::string& project) {
    const char* t = "tester";
    std::printf("5. applet \"%s\" reads the responder's system variable, then the VIN of a simulated ECU\n"
                "   (UDS over ISO-TP) and the engine speed from its XCP slave at measurement start\n", t);
    ruvo_sdk::createRuvo(t, AT_TOOL);
    ruvo_sdk::genDefaultMainFunction(t);
    ruvo_sdk::createRuvoFunc(t, "on_start_diagnose", RFT_PROGRAM_START, nullptr, 0);
    body(t, "on_start_diagnose",
         "s32 replies = 0;\n"
         "if (var.get_system_var_int32(\"demo.replies\", &replies) == 0) {\n"
         "    clog.info(\"tester: the responder's system variable demo.replies holds %d\", replies);\n"
         "}\n"
         "KelnEcuInfo ecu;\n"
         "ecu.appconfig.channel = 0;\n"
         "ecu.uds.ptype = PROTOCOL_DoCAN;\n"
         "ecu.uds.protocol.docan.physical_address = 0x7E0;\n"
         "ecu.uds.protocol.docan.functional_address = 0x7DF;\n"
         "ecu.uds.protocol.docan.response_address = 0x7E8;\n"
         "ecu.uds.protocol.docan.fill = 0xCC;\n"
         "ecu.uds.p2time = 500;\n"
         "ecu.uds.p2extend_time = 5000;\n"
         "static KelnBigMsg request, answer;\n"
         "request.MessageLen = 3;\n"
         "request.MessageData[0] = 0x22; request.MessageData[1] = (char)0xF1; request.MessageData[2] = (char)0x90;\n"
         "if (com.send_and_recv_uds_msg(&ecu, &request, &answer, 3000) == 0 && answer.MessageLen > 3) {\n"
         "    clog.info(\"tester: VIN %.*s\", (int)answer.MessageLen - 3, answer.MessageData + 3);\n"
         "}\n"
         "request.MessageLen = 2;\n"
         "request.MessageData[0] = 0x10; request.MessageData[1] = 0x02;  // a session the ECU lacks\n"
         "if (com.send_and_recv_uds_msg(&ecu, &request, &answer, 3000) != 0) {\n"
         "    clog.warn(\"tester: the ECU refused session 02, as expected\");\n"
         "}\n"
         "// The engine speed from the engine's XCP slave: CONNECT, then SHORT_UPLOAD of 2 bytes.\n"
         "uint16_t xcp_ch = 0;\n"
         "XcpCanCfg can_cfg = {0};\n"
         "can_cfg.clk_mhz = 24; can_cfg.baud.prescaler = 3; can_cfg.baud.num_seg1 = 13;\n"
         "can_cfg.baud.num_seg2 = 2; can_cfg.baud.num_sjw = 2;\n"
         "XcpTransportLayerCan trans_layer = {0x7FF, 0x700, 0x701, 0};\n"
         "XcpProtocolLayerCfg proto_layer = {0};\n"
         "proto_layer.T1 = 500; proto_layer.AddressGranularity = 1; proto_layer.Retries = 1;\n"
         "uint32_t xcp_hand = 0;\n"
         "uint8_t cto_buf[8] = {0};\n"
         "if (xcp.initialize_can(&xcp_ch, 0, can_cfg) == XCP_ERR_SUCCESS &&\n"
         "    xcp.add_slave(xcp_ch, trans_layer, proto_layer, &xcp_hand) == XCP_ERR_SUCCESS &&\n"
         "    xcp.connect_ff(xcp_hand, 0, cto_buf, 8) == XCP_ERR_SUCCESS &&\n"
         "    xcp.short_upload_f4(xcp_hand, 2, 0, 0x1000, cto_buf, 8) == XCP_ERR_SUCCESS) {\n"
         "    clog.info(\"tester: engine speed %u rpm, read over XCP\", cto_buf[1] | cto_buf[2] << 8);\n"
         "}\n"
         "xcp.remove_slave(xcp_hand);\n"
         "xcp.uninitialize(xcp_ch);");
    // A timer: runs every 50 ms while the measurement runs.
    ruvo_sdk::insertTimer(t, "heartbeat", 50);
    body(t, "on_heartbeat_timer",
         "static u8 beats = 0;\n"
         "KelnCan beat;\n"
         "com.init_can(0x321, 1, &beat);\n"
         "beat.FData[0] = ++beats;\n"
         "com.send_can_async(&beat);");
    std::printf("   and sends a heartbeat frame 0x321 from a 50 ms timer\n");
    std::printf("6. compiling ...\n");
    std::fflush(stdout);
    const CompileOutcome o = compileApplet(t, false);
    if (!o.succeeded()) {
        std::printf("%s", o.text.c_str());
        throw std::runtime_error("the demo tester did not compile" +
                                 std::string(o.result == CR_SUCCESS ? ": no module was written (no compiler?)" : ""));
    }
    loadModule(t);
    const std::string ecuFile = project + "/engine_ecu.json";
    std::ofstream(ecuFile) << kDemoEcu;
    const std::string xcpFile = project + "/engine_xcp.json";
    std::ofstream(xcpFile) << kDemoXcpSlave;
    std::printf("7. measurement with the ECU of %s; the frames on the bus:\n", ecuFile.c_str());
    std::fflush(stdout);
    std::mutex mutex;
    std::vector<std::string> lines;
    const int monitor = hostbridge::attachNode([&](const std::shared_ptr<MsgHeaderBase>& m) {
        const KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(m);
        if (h == nullptr) return;
        canlog::Frame f;
        f.channel = "can" + std::to_string(h->channel);
        f.id = h->identifier;
        const unsigned char* data = KELN::CanMsgAnalyse::getCanData(m);
        f.data.assign(data, data + h->length);
        std::lock_guard<std::mutex> lock(mutex);
        const std::string line = canlog::formatLine(".log", f);
        lines.push_back(line.substr(line.find(") ") + 2));  // without the time stamp
    });
    {
        BusPeers peers;
        peers.startEcus({ecuFile, xcpFile});
        runLive(0.2, FrameSink(), [] { return false; });
    }
    hostbridge::detachNode(monitor);
    for (const auto& line : lines) std::printf("   %s\n", line.c_str());
    ruvo_sdk::unloadRuvoMp(t);
}

int cmdDemo(const Args& args) {
    if (!args.empty()) throw UsageError("takes no arguments");
    const std::string project = platform::makeTempDirectory("ruvo_demo_");
    if (project.empty()) throw std::runtime_error("cannot create a temporary project");
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
    body(a, "on_start_demo",
         "clog.info(\"responder: measurement started\");\n"
         "var.add_system_var_int32(\"demo.replies\", \"replies the responder sent\");");
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
    body(a, "on_can_tx_sent", "var.set_system_var_int32(\"demo.replies\", ++g_replies);  // shared with other applets");

    std::printf("2. compiling ...\n");
    std::fflush(stdout);
    const CompileOutcome o = compileApplet(a, false);
    if (!o.succeeded()) {
        std::printf("%s", o.text.c_str());
        throw std::runtime_error("the demo applet did not compile" +
                                 std::string(o.result == CR_SUCCESS ? ": no module was written (no compiler?)" : ""));
    }
    std::printf("   module built in %llu ms\n", o.ms);
    loadModule(a);

    const std::string logPath = project + "/input.log";
    std::ofstream(logPath) << kDemoLog;
    std::printf("3. replaying %s:\n%s", logPath.c_str(), kDemoLog);
    std::fflush(stdout);
    std::vector<canlog::Frame> sent;
    replay(canlog::read(logPath).frames, [&](const canlog::Frame& f) { sent.push_back(f); });
    std::printf("4. the applet sent %zu frames:\n", sent.size());
    for (const auto& f : sent) std::printf("%s\n", canlog::formatLine(".log", f).c_str());
    const std::string dbcPath = project + "/demo.dbc";
    std::ofstream(dbcPath) << kDemoDbc;
    std::printf("   decoded with %s (ruvo decode --dbc %s LOG):\n", dbcPath.c_str(), dbcPath.c_str());
    const std::vector<ChannelDatabase> databases = {{-1, readDatabase(dbcPath)}};
    for (const auto& f : canlog::read(logPath).frames) std::printf("   in  %s\n", decodedLine(f, databases, false).c_str());
    for (const auto& f : sent) std::printf("   out %s\n", decodedLine(f, databases, false).c_str());
    ruvo_sdk::unloadRuvoMp(a);
    // The same applet as a script for the measurement device.
    if (ruvo_sdk::generateCodeFiles(a, "") != 0) throw std::runtime_error("cannot write the responder's files");
    std::vector<std::string> written;
    std::string error;
    const std::string package = project + "/device_package";
    if (ruvo_sdk::transCCodeToVciCode(a, package.c_str(), nullptr, 0, &written, &error) != 0) {
        throw std::runtime_error("the responder did not convert: " + error);
    }
    std::printf("   converted for the measurement device into %s:", package.c_str());
    for (const auto& file : written) std::printf(" %s", file.c_str());
    std::printf("\n");
    diagnoseDemoEcu(project);
    return 0;
}

Registrar rRun({"run", "PROJECT APPLET... [--replay LOG] [--out LOG] [--ecu ECU.json]... [--xcp-slave SLAVE.json]... [--listen [HOST:]PORT] [--dbc FILE.dbc@CHANNEL]... [--vars FILE.json] [--vars-out FILE.json] [--answer ok|cancel|yes|no] [--log FILE] [--for SECONDS] [--main] [--keys STROKES]",
                "run compiled applets on the bus: replay a CAN log, or a live measurement", cmdRun,
                "Loads the compiled modules of the applets and starts the measurement. With --replay\n"
                "it feeds the frames of a CAN log (candump .log, ASC .asc or BLF .blf, by suffix)\n"
                "as received frames in time order and stops; without it the measurement runs live\n"
                "until SIGINT/SIGTERM or for --for SECONDS. Every frame the applets send is written\n"
                "as it goes out, to --out in the format of its suffix (candump to stdout). A signal\n"
                "stops the measurement cleanly (stop handlers run) and exits with 130/143. --ecu puts a\n"
                "simulated ECU on the bus, --xcp-slave a simulated XCP slave (both repeatable);\n"
                "--listen serves the bus over the socketcand protocol, so outside tools see the\n"
                "applets' frames and can send to them. --dbc loads a CAN database on a channel\n"
                "(repeatable), so calculate_can_message and the message records work; --vars\n"
                "creates system variables from a JSON file before the start; --vars-out writes every\n"
                "variable at the stop. Message boxes are answered on a TTY, else by --answer (default\n"
                "ok); the buzzer rings the terminal bell; flow progress is a bar on a TTY; applet log\n"
                "lines go to stdout with time, level and name (to stderr while frames go to stdout),\n"
                "and to --log FILE. Timers run while the measurement runs. --main runs each\n"
                "applet's main function on a thread of its own meanwhile (a signal ends them by\n"
                "force, then the measurement). --keys \"Ctrl R,A\" presses keys for the shortcut\n"
                "handlers after the start; in a live run on a terminal, typed keys reach them.\n"
                "A handler that faults (SIGSEGV, SIGFPE, abort, an exception) is reported as\n"
                "APPLET: FUNCTION: WHAT, its applet is called no more, the others go on, and the\n"
                "exit status is 3."});
Registrar rExec({"exec", "PROJECT APPLET", "run an applet's main function once, here, guarded", cmdExec,
                 "Loads the applet's compiled module and runs its main function on this thread.\n"
                 "A fault in it (SIGSEGV, SIGFPE, abort, an exception) is reported as\n"
                 "APPLET: FUNCTION: WHAT and gives exit status 1; the main function's log lines\n"
                 "go to stdout."});
Registrar rDemo({"demo", "", "the whole road on a temporary project: create, compile, replay, show", cmdDemo,
                 "Creates an applet in a temporary project that answers diagnostic requests on\n"
                 "0x7E0 with replies on 0x7E8, compiles it, replays a small log through it, prints\n"
                 "the frames it sent and removes the project again."});

}  // namespace
}  // namespace cli
