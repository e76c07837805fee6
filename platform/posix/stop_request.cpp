#include "platform/stop_request.h"

#include <atomic>
#include <csignal>

namespace platform {

namespace {

static_assert(SIGINT == StopRequests::kInterrupt && SIGTERM == StopRequests::kTerminate,
              "requests are reported as their signals");

std::atomic<int> g_request{0};
static_assert(std::atomic<int>::is_always_lock_free, "set from a signal handler");

extern "C" void noteStopSignal(int signal) { g_request.store(signal); }

constexpr int kSignals[2] = {SIGINT, SIGTERM};
struct sigaction g_old[2];
bool g_installed[2] = {false, false};

}  // namespace

StopRequests::StopRequests() {
    g_request.store(0);
    struct sigaction action {};
    action.sa_handler = noteStopSignal;
    sigemptyset(&action.sa_mask);
    // SA_RESETHAND: the second signal meets the default action and ends the program.
    action.sa_flags = SA_RESTART | SA_RESETHAND;
    for (size_t i = 0; i < 2; ++i) {
        g_installed[i] = false;
        struct sigaction old {};
        if (::sigaction(kSignals[i], nullptr, &old) != 0 || old.sa_handler == SIG_IGN) continue;
        g_installed[i] = ::sigaction(kSignals[i], &action, &g_old[i]) == 0;
    }
}

StopRequests::~StopRequests() {
    for (size_t i = 0; i < 2; ++i) {
        if (g_installed[i]) ::sigaction(kSignals[i], &g_old[i], nullptr);
        g_installed[i] = false;
    }
}

int StopRequests::received() const { return g_request.load(); }

}  // namespace platform
