#pragma once
// What "ruvo run" adds around a measurement: reports of faulting handlers, the applets' main
// functions on runner threads, and key strokes (scripted or typed on the terminal).

#include <atomic>
#include <string>
#include <vector>

#include "platform/keyboard_hook.h"

namespace cli {

// From construction on, handlers run guarded: a fault is reported on stderr as
// "APPLET: FUNCTION: WHAT", once per applet, and that applet is called no more.
class FaultReports {
public:
    FaultReports();
    ~FaultReports();
    FaultReports(const FaultReports&) = delete;
    FaultReports& operator=(const FaultReports&) = delete;
    // Faulted handlers and main functions so far.
    static int count();
    static void report(const std::string& applet, const std::string& function, const std::string& what);
};

// The applets' main functions, each on a runner thread of its own under the applet's name.
class MainRuns {
public:
    explicit MainRuns(std::vector<std::string> applets) : applets_(std::move(applets)) {}
    ~MainRuns() { stop(); }
    MainRuns(const MainRuns&) = delete;
    MainRuns& operator=(const MainRuns&) = delete;

    void start();
    // Ends the runs still going by force ("APPLET: main stopped" on stderr for each).
    void stop();

private:
    std::vector<std::string> applets_;
    bool started_ = false;
};

// The main function of a loaded applet on this thread, guarded: false (reported) if it faulted.
bool runMainSync(const std::string& applet);

// "Ctrl R,A" / "Ctrl+Shift+Num5": strokes separated by commas, keys by blanks or '+'.
std::vector<platform::KeyStroke> parseKeyStrokes(const std::string& text);
// Delivers the strokes to the applets' shortcut handlers and waits until they have run.
void pressKeys(const std::vector<platform::KeyStroke>& strokes);
// Whether any of these applets binds a key.
bool anyKeyBindings(const std::vector<std::string>& applets);

}  // namespace cli
