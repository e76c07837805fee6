#pragma once
// What the commands that keep running share: the SIGINT/SIGTERM handling and --for SECONDS.

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include "apps/ruvo/cli.h"

namespace cli {

inline std::atomic<int> g_stopSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "set from a signal handler");

extern "C" inline void ruvoNoteStopSignal(int signal) { g_stopSignal.store(signal); }

// SIGINT and SIGTERM end a run at the next check: the handler only notes the signal, the
// command's loop sees it and ends cleanly. Installed for the life of the object. A signal that
// was ignored when we started (a background job of a shell without job control, nohup) stays
// ignored. The handler resets itself: a second Ctrl-C ends a run that hangs at once.
class StopSignals {
public:
    StopSignals() {
        g_stopSignal.store(0);
        struct sigaction action {};
        action.sa_handler = ruvoNoteStopSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART | SA_RESETHAND;
        for (size_t i = 0; i < 2; ++i) {
            installed_[i] = false;
            struct sigaction old {};
            if (::sigaction(kSignals[i], nullptr, &old) != 0 || old.sa_handler == SIG_IGN) continue;
            installed_[i] = ::sigaction(kSignals[i], &action, &old_[i]) == 0;
        }
    }
    ~StopSignals() {
        for (size_t i = 0; i < 2; ++i) {
            if (installed_[i]) ::sigaction(kSignals[i], &old_[i], nullptr);
        }
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
    int received() const { return g_stopSignal.load(); }

private:
    static constexpr int kSignals[2] = {SIGINT, SIGTERM};
    struct sigaction old_[2] {};
    bool installed_[2] = {false, false};
};

inline const char* signalName(int signal) { return signal == SIGINT ? "SIGINT" : "SIGTERM"; }

// The argument of --for: seconds above 0.
inline double parseSeconds(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || errno != 0 || !(v > 0) || v > 1e7) {
        throw UsageError("--for needs a number of seconds above 0: " + text);
    }
    return v;
}

}  // namespace cli
