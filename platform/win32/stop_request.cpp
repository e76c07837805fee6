#include "platform/stop_request.h"

#include <windows.h>

#include <atomic>

namespace platform {

namespace {

std::atomic<int> g_request{0};
std::atomic<bool> g_running{false};

// Runs on a thread the system starts for the event.
BOOL WINAPI noteConsoleEvent(DWORD event) {
    const int request = event == CTRL_C_EVENT ? StopRequests::kInterrupt : StopRequests::kTerminate;
    int none = 0;
    if (!g_request.compare_exchange_strong(none, request)) return FALSE;  // the second: default, ends at once
    if (event == CTRL_CLOSE_EVENT || event == CTRL_LOGOFF_EVENT || event == CTRL_SHUTDOWN_EVENT) {
        // The process ends when this returns: give the loop its few seconds to stop cleanly.
        for (int waited = 0; g_running.load() && waited < 4500; waited += 50) Sleep(50);
    }
    return TRUE;
}

}  // namespace

StopRequests::StopRequests() {
    g_request.store(0);
    g_running.store(true);
    SetConsoleCtrlHandler(noteConsoleEvent, TRUE);
}

StopRequests::~StopRequests() {
    SetConsoleCtrlHandler(noteConsoleEvent, FALSE);
    g_running.store(false);
}

int StopRequests::received() const { return g_request.load(); }

}  // namespace platform
