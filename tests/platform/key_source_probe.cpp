// A child for the terminal key source tests: reads keys from the terminal named by its argument,
// says "ready" on stdout, and when stdin ends leaves through exit() without stopping the source.
// The test ends it by a signal or by closing stdin.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/keyboard_hook.h"

// Left running on purpose: only the library's own exit handler may put the terminal back.
platform::TerminalKeySource* g_source = nullptr;

int main(int argc, char** argv) {
    if (argc != 2) return 64;
    const int fd = ::open(argv[1], O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return 66;
    g_source = new platform::TerminalKeySource;
    std::string error;
    if (!g_source->start(fd, error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 70;
    }
    if (::write(STDOUT_FILENO, "ready\n", 6) != 6) return 71;
    char c;
    while (::read(STDIN_FILENO, &c, 1) > 0) {
    }
    std::exit(0);
}
