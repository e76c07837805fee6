// "ruvo ecu": simulated ECUs alone on the bus, served to outside testers.

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "apps/ruvo/cli.h"
#include "apps/ruvo/run_support.h"
#include "host/bus/socketcand_server.h"
#include "host/ecu/ecu_node.h"

namespace cli {
namespace {

std::string hexId(uint32_t id) {
    char text[16];
    std::snprintf(text, sizeof text, "%X", id);
    return text;
}

int cmdEcu(const Args& args) {
    std::vector<std::string> files;
    std::string listen;
    double seconds = -1;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--listen") {
            if (i + 1 >= args.size()) throw UsageError("--listen needs [HOST:]PORT");
            listen = args[++i];
        } else if (args[i] == "--for") {
            if (i + 1 >= args.size()) throw UsageError("--for needs a number of seconds");
            seconds = parseSeconds(args[++i]);
        } else if (args[i].rfind("--", 0) == 0) {
            throw UsageError("unknown option " + args[i]);
        } else {
            files.push_back(args[i]);
        }
    }
    if (files.empty()) throw UsageError("expected ECU.json... [--listen [HOST:]PORT] [--for SECONDS]");
    hostbridge::SocketcandServer::Options options;
    if (!listen.empty()) {
        std::string error;
        if (!hostbridge::parseListenAddress(listen, &options.host, &options.port, &error)) throw UsageError(error);
    }
    const StopSignals signals;

    // Every file is checked before any ECU joins the bus.
    std::vector<hostbridge::ecu::EcuConfig> configs(files.size());
    for (size_t i = 0; i < files.size(); ++i) {
        std::string error;
        if (!hostbridge::ecu::loadEcuConfig(userPath(files[i]), configs[i], error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return 1;
        }
    }
    std::vector<std::unique_ptr<hostbridge::ecu::EcuNode>> ecus;
    for (hostbridge::ecu::EcuConfig& config : configs) {
        ecus.push_back(std::make_unique<hostbridge::ecu::EcuNode>(std::move(config)));
        const hostbridge::ecu::EcuNode& e = *ecus.back();
        const hostbridge::ecu::EcuAddressing& a = e.addressing();
        std::fprintf(stderr, "ECU \"%s\" on can%d: requests to %s (functional %s), answers on %s\n",
                     e.name().c_str(), a.channel, hexId(a.physicalId).c_str(), hexId(a.functionalId).c_str(),
                     hexId(a.responseId).c_str());
    }
    hostbridge::SocketcandServer server;
    if (!listen.empty()) {
        std::string error;
        if (!server.start(options, &error)) {
            std::fprintf(stderr, "cannot serve the bus: %s\n", error.c_str());
            return 1;
        }
        std::fprintf(stderr, "serving the bus on %s\n", server.address().c_str());
    }
    std::fprintf(stderr, "ECUs running %s\n",
                 seconds < 0 ? "until SIGINT or SIGTERM" : ("for " + std::to_string(seconds) + " s").c_str());
    std::fflush(stderr);

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (signals.received() == 0 && (seconds < 0 || std::chrono::steady_clock::now() < deadline)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    // Testers go first, so that none is left talking to an ECU that has gone.
    server.stop();
    ecus.clear();
    if (const int signal = signals.received()) {
        std::fprintf(stderr, "interrupted by %s: ECUs stopped\n", signalName(signal));
        return 128 + signal;
    }
    std::fprintf(stderr, "ECUs stopped\n");
    return 0;
}

Registrar rEcu({"ecu", "ECU.json... [--listen [HOST:]PORT] [--for SECONDS]",
                "run simulated ECUs on the bus, served to outside testers", cmdEcu,
                "Loads every ECU file (a bad one: its error, exit 1) and runs each ECU as a node on\n"
                "the virtual bus, answering UDS requests over ISO-TP on its own addresses. With\n"
                "--listen the bus is served over the socketcand protocol (raw mode, can0 is channel\n"
                "0): PORT alone listens on 127.0.0.1, 0 picks a free port, the address is printed\n"
                "as \"serving the bus on HOST:PORT\". Runs until SIGINT/SIGTERM (exit 130/143) or\n"
                "for --for SECONDS (exit 0)."});

}  // namespace
}  // namespace cli
