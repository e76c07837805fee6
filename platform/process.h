#pragma once
// A child process whose standard output and standard error arrive mixed on one pipe, in the
// order the child wrote them.

#include <functional>
#include <memory>
#include <string>

namespace platform {

class ChildProcess {
public:
    ChildProcess();
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Runs `commandLine` through the system shell. False with the reason in `error` when the
    // pipe or the process cannot be made.
    bool start(const std::string& commandLine, std::string& error);
    // Reads the merged output until every writer has closed the pipe; calls `sink` per block.
    void readAll(const std::function<void(const char*, size_t)>& sink);
    // Waits for the end; the exit code, or -1 when it could not be had.
    int wait();
    // Ends the process and everything it started; safe after the end and from another thread.
    void terminate();

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};

}  // namespace platform
