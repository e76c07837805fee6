#pragma once
// A child process started without any shell, its output on pipes.
//
// POSIX: the program and its arguments are an argument vector; argv[0] is the program's path,
// taken as it is (no PATH search). Windows: the process creation call takes one command line,
// so the Windows profile hands over its line as it is built for that platform.

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace platform {

struct Command {
    std::vector<std::string> argv;  // POSIX: program path, then the arguments, each verbatim
    std::string windowsLine;        // win32 only: the command line, in the active code page
};

class ChildProcess {
public:
    enum class Output {
        Merged,    // stdout and stderr on one pipe, in the order the child wrote them
        Separate,  // one pipe each
    };
    // Why start failed: the pipe could not be made, or the program could not be started
    // (`code` is errno or GetLastError(), e.g. ENOENT for a missing program).
    struct Failure {
        enum class Stage { Pipe, Start };
        Stage stage = Stage::Start;
        int code = 0;
        std::string text;  // the call that failed and the number, e.g. "CreatePipe failed: 24"
    };

    ChildProcess();
    // A process still running when this is destroyed is ended and reaped.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Starts `command` in a process group of its own, stdin from nothing. Win32: Merged starts
    // the line with CreateProcessW without a window, Separate with CreateProcessA, hidden.
    bool start(const Command& command, Output output, Failure& failure);
    // Merged: reads until every writer has closed the pipe; calls `sink` per block.
    void readAll(const std::function<void(const char*, size_t)>& sink);
    // Separate: collects both pipes until every writer has closed them, reading whichever has
    // data, so a child that fills one pipe while the other is quiet cannot block.
    void readSeparately(std::string& out, std::string& err);
    // Waits for the end: the exit code (128 + signal number for a killed process), or -1.
    int wait();
    // Ends the process and everything in its group; safe after the end and from another thread.
    void terminate();

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};

}  // namespace platform
