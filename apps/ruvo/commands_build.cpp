// "ruvo compile" and "ruvo bind".

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "RuvoManager/ruvo_sdk.h"
#include "apps/ruvo/cli.h"

namespace cli {

CompileOutcome compileApplet(const std::string& applet, bool showProgress) {
    std::mutex m;
    std::condition_variable done;
    bool finished = false;
    CompileOutcome outcome;
    auto callback = [&](compileResult r, unsigned long long ms, const char*, const char* text) {
        std::lock_guard<std::mutex> lock(m);
        outcome = CompileOutcome{r, ms, text ? text : ""};
        finished = true;
        done.notify_all();
    };
    if (ruvo_sdk::compileRuvo(applet.c_str(), callback) != 0) {
        throw std::runtime_error("cannot compile \"" + applet +
                                 "\": its functions depend on each other in a circle, or the "
                                 "sources cannot be written");
    }
    const auto start = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lock(m);
    while (!done.wait_for(lock, std::chrono::milliseconds(250), [&] { return finished; })) {
        if (showProgress) {
            const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            std::fprintf(stderr, "\rcompiling %s ... %.1f s", applet.c_str(), s);
        }
    }
    if (showProgress) std::fprintf(stderr, "\r%60s\r", "");
    return outcome;
}

namespace {

int cmdCompile(const Args& args) {
    if (args.size() != 2) throw UsageError("expected PROJECT APPLET");
    const std::string applet = openApplet(args[0], args[1]);
    std::fflush(stdout);
    const CompileOutcome o = compileApplet(applet, true);
    std::printf("%s", o.text.c_str());
    std::printf("result: %s (%d), %llu ms\n", o.result == CR_SUCCESS ? "success" : "failure", o.result,
                o.ms);
    if (o.result == CR_SUCCESS) {
        std::printf("module: %s\n", RuvoManager::getInstance().getApplet(applet)->getMpDllFullPath().c_str());
    }
    return o.result == CR_SUCCESS ? 0 : 1;
}

unsigned long long parseNumber(const std::string& text, const char* what) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long v = std::strtoull(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || errno != 0) {
        throw UsageError(std::string(what) + " must be a number (decimal or 0x hexadecimal): " + text);
    }
    return v;
}

int cmdBind(const Args& args) {
    if (args.size() < 5) throw UsageError("expected PROJECT APPLET KIND KEY VALUE...");
    const std::string applet = openApplet(args[0], args[1]);
    const std::string& kind = args[2];
    const std::string& key = args[3];
    const char* a = applet.c_str();
    int r = 0;
    std::string function;
    if (kind == "rx" || kind == "tx" || kind == "pretx") {
        if (args.size() != 5) throw UsageError("a CAN binding takes one id");
        const unsigned long long id = parseNumber(args[4], "the CAN id");
        if (kind == "rx") r = ruvo_sdk::insertRecvCANId(a, key.c_str(), id);
        if (kind == "tx") r = ruvo_sdk::insertSendCANId(a, key.c_str(), id);
        if (kind == "pretx") r = ruvo_sdk::insertPreSendCANId(a, key.c_str(), id);
        function = (kind == "rx" ? "on_can_rx_" : kind == "tx" ? "on_can_tx_" : "on_can_pretx_") + key;
    } else if (kind == "key") {
        std::vector<const char*> parts;
        for (size_t i = 4; i < args.size(); ++i) parts.push_back(args[i].c_str());
        r = ruvo_sdk::insertKeyboardEvent(a, key.c_str(), parts.data(), static_cast<unsigned>(parts.size()));
        function = "on_shortcut_" + key;
    } else if (kind == "timer") {
        if (args.size() != 5) throw UsageError("a timer takes one interval in ms");
        r = ruvo_sdk::insertTimer(a, key.c_str(), parseNumber(args[4], "the interval"));
        function = "on_" + key + "_timer";
    } else {
        throw UsageError("KIND must be rx, tx, pretx, key or timer");
    }
    if (r != 0) throw std::runtime_error("cannot bind \"" + key + "\"");
    if (ruvo_sdk::serilize(a, "") != 0) throw std::runtime_error("cannot save the applet");
    std::printf("%s: %s bound; write its body with: ruvo func %s %s %s --body FILE\n", applet.c_str(),
                function.c_str(), args[0].c_str(), applet.c_str(), function.c_str());
    return 0;
}

Registrar rCompile({"compile", "PROJECT APPLET",
                    "generate and compile the applet's module, showing progress, output, result and time",
                    cmdCompile});
Registrar rBind({"bind", "PROJECT APPLET rx|tx|pretx KEY ID | key KEY PART... | timer KEY MS",
                 "bind a CAN receive/send/pre-send id, a shortcut or a timer (makes its function)",
                 cmdBind});

}  // namespace
}  // namespace cli
