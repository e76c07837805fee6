#pragma once
// A user's request to stop a program that keeps running: Ctrl-C, or the system ending it.

namespace platform {

// Installed for the life of the object (one at a time). A request is only noted; the program's
// loop sees it and ends cleanly. A second request ends the program at once, so a run that hangs
// can still be left. Requests that were ignored when the program started (a background job,
// nohup) stay ignored.
class StopRequests {
public:
    // The numbers requests are reported with, as POSIX signals: an exit code is 128 plus them.
    static constexpr int kInterrupt = 2;   // Ctrl-C (SIGINT)
    static constexpr int kTerminate = 15;  // the system or another program (SIGTERM)

    StopRequests();
    ~StopRequests();
    StopRequests(const StopRequests&) = delete;
    StopRequests& operator=(const StopRequests&) = delete;

    // 0 while none came, else kInterrupt or kTerminate.
    int received() const;
    static const char* name(int request) { return request == kInterrupt ? "SIGINT" : "SIGTERM"; }
};

}  // namespace platform
