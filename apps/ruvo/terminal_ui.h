#pragma once
// The workstation's user side on a terminal during "ruvo run": message boxes answered by the
// user on a TTY (or by --answer), the buzzer as the terminal bell, flow progress as a bar on a
// TTY (a line per step otherwise), and the applets' log lines with time, level and name.

#include <cstdio>
#include <string>
#include <vector>

namespace cli {

class TerminalUi {
public:
    // `answer`: ok, cancel, yes or no, taken when stdin is no TTY. `logLines`: where applet log
    // lines go (stdout, or stderr while frames go to stdout); `logFile` also gets them (may be
    // null). Hooks itself into the applets named and the workstation until destroyed.
    TerminalUi(const std::string& answer, std::FILE* logLines, std::FILE* logFile,
               const std::vector<std::string>& applets);
    ~TerminalUi();
    TerminalUi(const TerminalUi&) = delete;
    TerminalUi& operator=(const TerminalUi&) = delete;

    // While keys typed on the terminal go to the applets, boxes take the --answer word.
    static void keysOwnTerminal(bool own);
    // "" for a good answer word, else the reason.
    static std::string answerProblem(const std::string& answer);

private:
    std::vector<std::string> applets_;
    int buzz_ = 0;
};

}  // namespace cli
