#include "apps/ruvo/terminal_ui.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <ctime>
#include <iostream>
#include <mutex>

#include "RuvoManager/ruvo_sdk.h"
#include "host/workstation.h"
#include "platform/codepage.h"
#include "platform/console.h"
#include "platform/local_time.h"

namespace cli {

namespace {

// The callbacks are plain function pointers: what they need lives here, under one lock (they
// come from applet threads).
std::mutex g_mutex;
std::string g_answer = "ok";
std::FILE* g_lines = nullptr;
std::FILE* g_logFile = nullptr;

std::atomic<bool> g_keysOwnTerminal{false};

bool interactive() {
    return !g_keysOwnTerminal.load() && platform::isTerminal(0) && platform::isTerminal(2);
}

// The user's answer on a TTY, else the one given on the command line; shown either way.
std::string ask(const std::string& prompt) {
    std::fprintf(stderr, "%s", prompt.c_str());
    std::string answer = g_answer;
    if (interactive()) {
        std::fprintf(stderr, "answer (ok/cancel/yes/no) [%s]: ", g_answer.c_str());
        std::fflush(stderr);
        std::string line;
        if (std::getline(std::cin, line) && TerminalUi::answerProblem(line).empty()) answer = line;
    } else {
        std::fprintf(stderr, "answer: %s\n", answer.c_str());
    }
    std::fflush(stderr);
    return answer;
}

bool positive(const std::string& answer) { return answer == "ok" || answer == "yes"; }

void putResult(const std::string& answer, char* result, int size) {
    if (result == nullptr || size <= 0) return;
    const size_t n = std::min(answer.size(), static_cast<size_t>(size - 1));
    std::memcpy(result, answer.data(), n);
    result[n] = '\0';
}

std::string text(const char* s) { return s ? s : ""; }

// ok/yes choose the first button offered, cancel/no the last.
ButtonType showBox(DataCategoryType, const char* value, int, ButtonType* buttons, int buttonCount,
                   char* valueResult, int valueSize, const char* title, const char* info) {
    std::lock_guard<std::mutex> lock(g_mutex);
    std::string prompt = "[box] " + text(title) + ": " + text(info);
    if (value != nullptr && *value != '\0') prompt += " (" + text(value) + ")";
    const std::string answer = ask(prompt + "\n");
    putResult(answer, valueResult, valueSize);
    if (buttons == nullptr || buttonCount <= 0) return BT_OK;
    return positive(answer) ? buttons[0] : buttons[buttonCount - 1];
}

// The index of the chosen button text: the first for ok/yes, the last for cancel/no.
int showRuvoBox(const char*, DataCategoryType, const char* value, int, const char** buttons, int buttonCount,
                char* valueResult, int valueSize, const char* title, const char* info) {
    std::lock_guard<std::mutex> lock(g_mutex);
    std::string prompt = "[box] " + text(title) + ": " + text(info);
    if (value != nullptr && *value != '\0') prompt += " (" + text(value) + ")";
    for (int i = 0; buttons != nullptr && i < buttonCount; ++i) prompt += (i ? " | " : " [") + text(buttons[i]);
    if (buttons != nullptr && buttonCount > 0) prompt += "]";
    const std::string answer = ask(prompt + "\n");
    putResult(answer, valueResult, valueSize);
    return buttonCount <= 0 ? 0 : (positive(answer) ? 0 : buttonCount - 1);
}

void progress(const char* applet, const char* sequence, const char* block, double value, int result) {
    std::lock_guard<std::mutex> lock(g_mutex);
    const double p = std::max(0.0, std::min(100.0, value));
    if (platform::isTerminal(2)) {
        const int filled = static_cast<int>(p / 5);
        std::fprintf(stderr, "\r[%-20s] %5.1f%% %s %s%s", std::string(filled, '#').c_str(), p, text(applet).c_str(),
                     text(sequence).c_str(), p >= 100 ? "\n" : "");
    } else {
        std::fprintf(stderr, "progress %s %s %s %.1f%% result %d\n", text(applet).c_str(), text(sequence).c_str(),
                     text(block).c_str(), p, result);
    }
    std::fflush(stderr);
}

// The host names applets to their log callback in GBK.
void setLogCallback(const std::string& applet, RuvoLogCallBack callback) {
    std::string gbk;
    ruvo_sdk::registerLogCallBack(platform::utf8ToGbk(applet, gbk) ? gbk.c_str() : applet.c_str(), callback);
}

const char* levelText(KelnLogLevel level) {
    switch (level) {
        case KLL_INFO: return "INFO";
        case KLL_SUCCESS: return "SUCCESS";
        case KLL_WARNING: return "WARN";
        case KLL_ERROR: return "ERROR";
    }
    return "LEVEL?";
}

void logLine(const char* applet, KelnLogLevel level, const char* message) {
    std::string name;
    if (applet == nullptr || !platform::gbkToUtf8(applet, name)) name = text(applet);
    const auto now = std::chrono::system_clock::now();
    const std::time_t t = std::chrono::system_clock::to_time_t(now);
    const long ms = static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000);
    std::tm tm{};
    platform::localTime(t, tm);
    char stamp[32];
    std::snprintf(stamp, sizeof stamp, "%02d:%02d:%02d.%03ld", tm.tm_hour, tm.tm_min, tm.tm_sec, ms);
    std::lock_guard<std::mutex> lock(g_mutex);
    for (std::FILE* out : {g_lines, g_logFile}) {
        if (out == nullptr) continue;
        std::fprintf(out, "%s %s %s: %s\n", stamp, levelText(level), name.c_str(), text(message).c_str());
        std::fflush(out);
    }
}

}  // namespace

void TerminalUi::keysOwnTerminal(bool own) { g_keysOwnTerminal.store(own); }

std::string TerminalUi::answerProblem(const std::string& answer) {
    if (answer == "ok" || answer == "cancel" || answer == "yes" || answer == "no") return "";
    return "--answer takes ok, cancel, yes or no: " + answer;
}

TerminalUi::TerminalUi(const std::string& answer, std::FILE* logLines, std::FILE* logFile,
                       const std::vector<std::string>& applets)
    : applets_(applets) {
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_answer = answer;
        g_lines = logLines;
        g_logFile = logFile;
    }
    ruvo_sdk::registerUICallback(UICB_DEFAULT, showBox);
    ruvo_sdk::registerUIShowCallback(UICB_DEFAULT, showRuvoBox);
    CallbackFuncsImp::setNotifyCallback(progress);
    for (const std::string& a : applets_) setLogCallback(a, logLine);
    buzz_ = hostbridge::addBuzzListener([](const hostbridge::BuzzCall& c) {
        std::lock_guard<std::mutex> lock(g_mutex);
        std::fprintf(stderr, "\a[buzz] device %d: %u Hz %u ms, %u Hz %u ms, %u times\n", c.device, c.firstHz,
                     c.firstTimeMs, c.secondHz, c.secondTimeMs, c.reptCount);
        std::fflush(stderr);
    });
}

TerminalUi::~TerminalUi() {
    hostbridge::removeBuzzListener(buzz_);
    for (const std::string& a : applets_) setLogCallback(a, nullptr);
    CallbackFuncsImp::setNotifyCallback(nullptr);
    ruvo_sdk::registerUIShowCallback(UICB_DEFAULT, nullptr);
    ruvo_sdk::registerUICallback(UICB_DEFAULT, nullptr);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lines = nullptr;
    g_logFile = nullptr;
}

}  // namespace cli
