// A child for the process tests: does one thing, chosen by its first argument.
#include <sys/types.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void put(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n <= 0) std::exit(70);
        done += static_cast<size_t>(n);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "args") {  // every further argument, each ended by NUL
        for (int i = 2; i < argc; ++i) put(1, std::string(argv[i]) + '\0');
        return 0;
    }
    if (mode == "interleave") {  // alternating streams, one write each, no buffering
        for (int i = 0; i < 200; ++i) {
            put(1, "out" + std::to_string(i) + "\n");
            put(2, "err" + std::to_string(i) + "\n");
        }
        return 0;
    }
    if (mode == "split") {
        put(1, "to stdout\n");
        put(2, "to stderr\n");
        return 0;
    }
    if (mode == "flood") {  // far more than a pipe holds, on stderr first
        const size_t bytes = std::strtoul(argv[2], nullptr, 10);
        put(2, std::string(bytes, 'e'));
        put(1, std::string(bytes, 'o'));
        return 4;
    }
    if (mode == "exit") return std::atoi(argv[2]);
    if (mode == "stdin") {  // how much it could read from its standard input
        char buffer[256];
        const ssize_t n = ::read(0, buffer, sizeof(buffer));
        put(1, "read " + std::to_string(n) + "\n");
        return 0;
    }
    if (mode == "grandchild") {  // a grandchild that holds the pipe, then both sleep
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::sleep(60);
            return 0;
        }
        put(1, "ready " + std::to_string(pid) + "\n");
        ::sleep(60);
        return 0;
    }
    put(2, "unknown mode\n");
    return 64;
}
