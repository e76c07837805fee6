// "ruvo compile", "ruvo bind" and "ruvo unbind".

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <optional>

#include "RuvoManager/ruvo_sdk.h"
#include "apps/ruvo/bus_databases.h"
#include "apps/ruvo/cli.h"
#include "apps/ruvo/compile_messages.h"
#include "generator/CppCodeGenerator.h"
#include "platform/console.h"

namespace cli {

namespace {

bool verbose() { return std::getenv("RUVO_VERBOSE") != nullptr; }

// When the module file was last written; none when there is no file.
std::optional<std::filesystem::file_time_type> moduleStamp(const std::string& path) {
    std::error_code ec;
    const auto t = std::filesystem::last_write_time(path, ec);
    if (ec) return std::nullopt;
    return t;
}

}  // namespace

CompileOutcome compileApplet(const std::string& applet, bool showProgress) {
    MpRuvo* a = RuvoManager::getInstance().getApplet(applet);
    if (a == nullptr) throw std::runtime_error("no applet \"" + applet + "\"");
    const std::string module = a->getMpDllFullPath();
    const auto before = moduleStamp(module);
    // The map comes from the model the compile generates from; nothing changes it in between.
    const CompileMessages messages(
        applet, a->getCodePath() + "singleapp.cpp",
        CppCodeGenerator().singleFileBodyLines(a->getGlobalVarList(), a->getMpFuncs(), a->getEditType()));

    std::mutex m;
    std::condition_variable done;
    bool finished = false;
    CompileOutcome outcome;
    auto callback = [&](compileResult r, unsigned long long ms, const char*, const char* text) {
        std::lock_guard<std::mutex> lock(m);
        outcome.result = r;
        outcome.ms = ms;
        outcome.raw = text ? text : "";
        finished = true;
        done.notify_all();
    };
    {
        // The library reports its steps on stdout ("Output: ..." with the raw compiler text,
        // timings): a host's debug console, not this command's output. The compile thread
        // prints before its callback, so everything has landed when the outcome is in.
        const platform::StdoutDiverted diverted(verbose());
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
    }
    outcome.text = messages.map(outcome.raw);
    outcome.module = module;
    const auto after = moduleStamp(module);
    outcome.moduleWritten = after && after != before;
    return outcome;
}

namespace {

int cmdCompile(const Args& args) {
    Args positional;
    std::vector<DbcSpec> databases;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--dbc") {
            if (i + 1 >= args.size()) throw UsageError("--dbc needs FILE.dbc@CHANNEL");
            databases.push_back(parseDbcSpec(args[++i]));
        } else if (args[i].rfind("--", 0) == 0) {
            throw UsageError("unknown option " + args[i]);
        } else {
            positional.push_back(args[i]);
        }
    }
    if (positional.size() != 2) throw UsageError("expected PROJECT APPLET [--dbc FILE.dbc@CHANNEL]...");
    const std::string applet = openApplet(positional[0], positional[1]);
    if (!databases.empty()) loadWorkstationDatabases(databases);
    std::fflush(stdout);
    const CompileOutcome o = compileApplet(applet, true);
    if (verbose()) std::fprintf(stderr, "compiler output as given:\n%s", o.raw.c_str());
    std::printf("%s", o.text.c_str());
    std::printf("result: %s (%d), %llu ms\n", o.result == CR_SUCCESS ? "success" : "failure", o.result,
                o.ms);
    if (o.result != CR_SUCCESS) return 1;
    if (!o.moduleWritten) {
        std::fprintf(stderr, "no module was written to %s: see the output above (RUVO_VERBOSE shows all)\n",
                     o.module.c_str());
        return 1;
    }
    std::printf("module: %s\n", o.module.c_str());
    return 0;
}

bool isBindingKind(const std::string& kind) {
    return kind == "rx" || kind == "tx" || kind == "pretx" || kind == "key" || kind == "timer";
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
    const std::string& kind = args[2];
    const std::string& key = args[3];
    if (!isBindingKind(kind)) throw UsageError("KIND must be rx, tx, pretx, key or timer");
    requireName(ruvo::NameKind::BindingKey, key);
    const std::string applet = openApplet(args[0], args[1]);
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

// The handler of a binding, by the naming rules of the model.
std::string handlerName(const std::string& kind, const std::string& key) {
    if (kind == "rx") return "on_can_rx_" + key;
    if (kind == "tx") return "on_can_tx_" + key;
    if (kind == "pretx") return "on_can_pretx_" + key;
    if (kind == "key") return "on_shortcut_" + key;
    return "on_" + key + "_timer";
}

bool isBound(MpRuvo& a, const std::string& kind, const std::string& key) {
    if (kind == "rx") return a.getRecvCANId().count(key) != 0;
    if (kind == "tx") return a.getSendCANId().count(key) != 0;
    if (kind == "pretx") return a.getPreSendCANId().count(key) != 0;
    if (kind == "key") return a.getKeyboardEvents().count(key) != 0;
    return a.getTimers().count(key) != 0;
}

int cmdUnbind(const Args& args) {
    if (args.size() != 4) throw UsageError("expected PROJECT APPLET KIND KEY");
    const std::string& kind = args[2];
    const std::string& key = args[3];
    if (!isBindingKind(kind)) throw UsageError("KIND must be rx, tx, pretx, key or timer");
    requireName(ruvo::NameKind::BindingKey, key);
    const std::string applet = openApplet(args[0], args[1]);
    MpRuvo* model = RuvoManager::getInstance().getApplet(applet);
    if (!isBound(*model, kind, key)) {
        throw std::runtime_error("applet \"" + applet + "\" has no " + kind + " binding \"" + key + "\"");
    }
    // The remove calls of the CAN ids and shortcuts also drop a function named like the key
    // itself (not the handler); a function of that name is the author's and stays.
    const RuvoFunction* sameName = model->findFuncPtr(key);
    const bool keepSameName = kind != "timer" && sameName != nullptr;
    const RuvoFunction kept = keepSameName ? *sameName : RuvoFunction();
    const char* a = applet.c_str();
    if (kind == "rx") ruvo_sdk::removeRecvCANId(a, key.c_str());
    if (kind == "tx") ruvo_sdk::removeSendCANId(a, key.c_str());
    if (kind == "pretx") ruvo_sdk::removePreSendCANId(a, key.c_str());
    if (kind == "key") ruvo_sdk::removeKeyboardEvent(a, key.c_str());
    if (kind == "timer") ruvo_sdk::removeTimer(a, key.c_str());
    if (keepSameName && !model->hasFunc(key)) model->addMpFunction(kept);
    if (ruvo_sdk::serilize(a, "") != 0) throw std::runtime_error("cannot save the applet");

    const std::string handler = handlerName(kind, key);
    if (kind == "timer") {
        std::printf("%s: timer \"%s\" removed with its function %s\n", a, key.c_str(), handler.c_str());
    } else if (model->hasFunc(handler)) {
        std::printf("%s: %s binding \"%s\" removed; its function %s stays, body included\n", a,
                    kind.c_str(), key.c_str(), handler.c_str());
    } else {
        std::printf("%s: %s binding \"%s\" removed\n", a, kind.c_str(), key.c_str());
    }
    return 0;
}

Registrar rCompile({"compile", "PROJECT APPLET [--dbc FILE.dbc@CHANNEL]...",
                    "generate and compile the applet's module, showing progress, output, result and time",
                    cmdCompile,
                    "Saves the applet, writes its sources into APPLET_code/ and compiles the module\n"
                    "APPLET_mp/APPLET.mp with the tool tree's clang++. Diagnostics in the generated\n"
                    "code are shown as APPLET:FUNCTION:LINE (LINE within that function's body), or\n"
                    "APPLET:singleapp.cpp:LINE outside every body. RUVO_VERBOSE=1 also prints the\n"
                    "compiler's own text on stderr. Exit 1 when the compile failed. --dbc (repeatable)\n"
                    "loads CAN databases first and regenerates the installation's database.h, so the\n"
                    "applet can use a record per message: MARKER_CANn::MESSAGE (marker = file name\n"
                    "without .dbc, n = channel + 1) with a double per signal, pack() and send()."});
Registrar rBind({"bind", "PROJECT APPLET rx|tx|pretx KEY ID | key KEY PART... | timer KEY MS",
                 "bind a CAN receive/send/pre-send id, a shortcut or a timer (makes its function)",
                 cmdBind,
                 "Binds a CAN receive, send or pre-send id (decimal or 0x...), a keyboard shortcut\n"
                 "(its parts, e.g. Ctrl R) or a timer of MS milliseconds, makes the handler\n"
                 "on_can_rx_KEY, on_can_tx_KEY, on_can_pretx_KEY, on_shortcut_KEY or on_KEY_timer\n"
                 "from its template (a CAN key bound again gets a fresh handler) and saves.\n"
                 "KEY is part of a C++ name: letters, digits and \"_\"."});
Registrar rUnbind({"unbind", "PROJECT APPLET rx|tx|pretx|key|timer KEY",
                   "remove a binding (a timer goes with its function, other handlers stay)", cmdUnbind,
                   "Removes the binding KEY of that kind and saves. A CAN or shortcut handler\n"
                   "(on_can_rx_KEY, ...) stays in the applet with its body and is no longer\n"
                   "called for that binding; a timer's function on_KEY_timer is removed with it.\n"
                   "Exit 1 when the applet has no such binding."});

}  // namespace
}  // namespace cli
