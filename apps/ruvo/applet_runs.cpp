#include "apps/ruvo/applet_runs.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <sstream>

#include "RuvoManager/RuvoManager.h"
#include "RuvoManager/ruvo_sdk.h"
#include "apps/ruvo/cli.h"
#include "platform/fault_guard.h"

namespace cli {

namespace {

std::atomic<int> g_faults{0};

void noteHandlerFault(const char* applet, const char* function, const char* what) {
    FaultReports::report(applet ? applet : "", function ? function : "", what ? what : "");
}

// What a runner thread gets: its own copy of this block.
struct MainBlock {
    void (*main)();
    char applet[64];
    char function[64];
};

void callPlain(void* f) { reinterpret_cast<void (*)()>(f)(); }

void runMain(void* block) {
    const auto* b = static_cast<const MainBlock*>(block);
    platform::FaultReport report;
    if (platform::runGuarded(callPlain, reinterpret_cast<void*>(b->main), &report) != 0) {
        FaultReports::report(b->applet, b->function, report.what);
    }
}

void ignoreState(void*, int) {}

void copyName(char (&to)[64], const std::string& from) {
    std::memset(to, 0, sizeof(to));
    std::memcpy(to, from.data(), std::min(from.size(), sizeof(to) - 1));
}

// False, with a line on stderr, when the applet has no main function in its module.
bool mainOf(const std::string& applet, MainBlock& block) {
    const std::string name = RuvoManager::getInstance().getAppletMainPort(applet);
    void* address = name.empty() ? nullptr : ruvo_sdk::getRuvoFuncAddr(applet.c_str(), name.c_str());
    if (address == nullptr) {
        std::fprintf(stderr, "%s: no main function in its module\n", applet.c_str());
        return false;
    }
    block.main = reinterpret_cast<void (*)()>(address);
    copyName(block.applet, applet);
    copyName(block.function, name);
    return true;
}

// 1 to 12 for "F1" to "F12", else 0.
int functionKey(const std::string& t) {
    if (t.size() < 2 || t.size() > 3 || t[0] != 'F' || t.find_first_not_of("0123456789", 1) != std::string::npos) return 0;
    const int n = std::atoi(t.c_str() + 1);
    return n >= 1 && n <= 12 ? n : 0;
}

}  // namespace

FaultReports::FaultReports() { ruvo_sdk::setHandlerFaultCallback(noteHandlerFault); }
FaultReports::~FaultReports() { ruvo_sdk::setHandlerFaultCallback(nullptr); }

int FaultReports::count() { return g_faults.load(); }

void FaultReports::report(const std::string& applet, const std::string& function, const std::string& what) {
    ++g_faults;
    static std::mutex mutex;  // lines from several threads stay whole
    std::lock_guard<std::mutex> lock(mutex);
    std::fprintf(stderr, "%s: %s: %s\n", applet.c_str(), function.c_str(), what.c_str());
    std::fflush(stderr);
}

void MainRuns::start() {
    for (const std::string& applet : applets_) {
        MainBlock block{};
        if (!mainOf(applet, block)) continue;
        ruvo_sdk::removeRunnerFunction(applet.c_str());  // a run of an earlier measurement
        ruvo_sdk::startRunnerFunction(applet.c_str(), runMain, &block, sizeof(block), ignoreState);
    }
    started_ = true;
}

void MainRuns::stop() {
    if (!started_) return;
    started_ = false;
    for (const std::string& applet : applets_) {
        int status = -1;
        ruvo_sdk::getStatusRunnerFunction(applet.c_str(), &status);
        if (status == 0) {
            ruvo_sdk::stopRunnerFunction(applet.c_str());
            std::fprintf(stderr, "%s: main function stopped by force\n", applet.c_str());
        }
        ruvo_sdk::removeRunnerFunction(applet.c_str());
    }
}

bool runMainSync(const std::string& applet) {
    MainBlock block{};
    if (!mainOf(applet, block)) return false;
    const int before = FaultReports::count();
    return ruvo_sdk::startRunnerFunctionSync(applet.c_str(), runMain, &block) == 0 && FaultReports::count() == before;
}

std::vector<platform::KeyStroke> parseKeyStrokes(const std::string& text) {
    std::vector<platform::KeyStroke> strokes;
    std::stringstream all(text);
    std::string one;
    while (std::getline(all, one, ',')) {
        for (char& c : one) {
            if (c == '+') c = ' ';
        }
        std::stringstream tokens(one);
        std::string t;
        platform::KeyStroke stroke;
        while (tokens >> t) {
            if (t == "Ctrl") {
                stroke.ctrl = true;
            } else if (t == "Shift") {
                stroke.shift = true;
            } else if (t == "Alt") {
                stroke.alt = true;
            } else if (stroke.virtualKey != 0) {
                throw UsageError("--keys: two keys in one stroke: " + one);
            } else if (t.size() == 1 && std::isalnum(static_cast<unsigned char>(t[0]))) {
                stroke.virtualKey = std::toupper(static_cast<unsigned char>(t[0]));
            } else if (t.size() == 4 && t.compare(0, 3, "Num") == 0 && std::isdigit(static_cast<unsigned char>(t[3]))) {
                stroke.virtualKey = platform::kVkNumpad0 + (t[3] - '0');
            } else if (const int f = functionKey(t); f != 0) {
                stroke.virtualKey = 0x6F + f;  // F1 is 0x70
            } else if (t == "Enter" || t == "Space" || t == "Tab" || t == "Esc") {
                stroke.virtualKey = t == "Enter" ? 0x0D : t == "Space" ? 0x20 : t == "Tab" ? 0x09 : 0x1B;
            } else {
                throw UsageError("--keys: unknown key \"" + t + "\" (use A-Z, 0-9, Num0-Num9, F1-F12, Enter, Space, Tab, Esc)");
            }
        }
        if (stroke.virtualKey == 0) throw UsageError("--keys: a stroke without a key: \"" + one + "\"");
        strokes.push_back(stroke);
    }
    if (strokes.empty()) throw UsageError("--keys needs strokes such as \"Ctrl R,A\"");
    return strokes;
}

void pressKeys(const std::vector<platform::KeyStroke>& strokes) {
    for (const auto& stroke : strokes) platform::injectKeyStroke(stroke);
    RuvoManager::getInstance().waitKeyboardIdle();
}

bool anyKeyBindings(const std::vector<std::string>& applets) {
    for (const std::string& name : applets) {
        MpRuvo* a = RuvoManager::getInstance().getApplet(name);
        if (a != nullptr && !a->isEmptyKeyboardEvent()) return true;
    }
    return false;
}

}  // namespace cli
