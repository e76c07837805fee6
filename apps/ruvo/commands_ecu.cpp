// "ruvo ecu": simulated ECUs and XCP slaves alone on the bus, served to outside testers.

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "apps/ruvo/cli.h"
#include "apps/ruvo/run_support.h"
#include "platform/stop_request.h"
#include "apps/ruvo/bus_peers.h"

namespace cli {
namespace {

int cmdEcu(const Args& args) {
    std::vector<std::string> files;
    BusPeers peers;
    double seconds = -1;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--listen") {
            if (i + 1 >= args.size()) throw UsageError("--listen needs [HOST:]PORT");
            peers.setListen(args[++i]);
        } else if (args[i] == "--xcp-slave") {
            if (i + 1 >= args.size()) throw UsageError("--xcp-slave needs an XCP slave file");
            peers.addXcpSlave(args[++i]);
        } else if (args[i] == "--for") {
            if (i + 1 >= args.size()) throw UsageError("--for needs a number of seconds");
            seconds = parseSeconds(args[++i]);
        } else if (args[i].rfind("--", 0) == 0) {
            throw UsageError("unknown option " + args[i]);
        } else {
            files.push_back(args[i]);
        }
    }
    if (files.empty()) {
        throw UsageError("expected ECU.json|SLAVE.json... [--xcp-slave SLAVE.json]... [--listen [HOST:]PORT] "
                         "[--for SECONDS]");
    }
    const platform::StopRequests signals;
    if (!peers.startEcusOrReport(files)) return 1;
    peers.startServer();
    std::fprintf(stderr, "ECUs running %s\n",
                 seconds < 0 ? "until SIGINT or SIGTERM" : ("for " + std::to_string(seconds) + " s").c_str());
    std::fflush(stderr);

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (signals.received() == 0 && (seconds < 0 || std::chrono::steady_clock::now() < deadline)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    peers.stop();
    if (const int signal = signals.received()) {
        std::fprintf(stderr, "interrupted by %s: ECUs stopped\n", platform::StopRequests::name(signal));
        return 128 + signal;
    }
    std::fprintf(stderr, "ECUs stopped\n");
    return 0;
}

Registrar rEcu({"ecu", "ECU.json|SLAVE.json... [--xcp-slave SLAVE.json]... [--listen [HOST:]PORT] [--for SECONDS]",
                "run simulated ECUs and XCP slaves on the bus, served to outside testers", cmdEcu,
                "Loads every ECU file (a bad one: its error, exit 1) and runs each ECU as a node on\n"
                "the virtual bus, answering UDS requests over ISO-TP on its own addresses. A file\n"
                "with a \"can\" object (and no \"addressing\") is an XCP slave's, as is the file of\n"
                "--xcp-slave (repeatable): a simulated XCP slave answering XCP commands on its\n"
                "CAN ids and sending its DAQ lists. With --listen the bus is served over the\n"
                "socketcand protocol (raw mode, can0 is channel 0): PORT alone listens on\n"
                "127.0.0.1, 0 picks a free port, the address is printed as \"serving the bus on\n"
                "HOST:PORT\". Runs until SIGINT/SIGTERM (exit 130/143) or for --for SECONDS\n"
                "(exit 0)."});

}  // namespace
}  // namespace cli
