#pragma once
// The program's standard streams.

namespace platform {

// Whether descriptor 0, 1 or 2 is a terminal (a console on Windows).
bool isTerminal(int descriptor);

// For the life of the object, what the program writes to stdout goes to stderr, or nowhere:
// chatter of a library meant for a debug console, kept out of a command's own output.
class StdoutDiverted {
public:
    explicit StdoutDiverted(bool toStderr);
    ~StdoutDiverted();
    StdoutDiverted(const StdoutDiverted&) = delete;
    StdoutDiverted& operator=(const StdoutDiverted&) = delete;

private:
    int saved_ = -1;
};

}  // namespace platform
