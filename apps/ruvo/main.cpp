#include <cstdio>
#include <cstring>
#include <exception>

#include "apps/ruvo/cli.h"

namespace cli {
std::vector<Command>& registry() {
    static std::vector<Command> commands;
    return commands;
}
}  // namespace cli

namespace {

void printUsage(std::FILE* out) {
    std::fprintf(out, "usage: ruvo COMMAND [ARGS]\n\ncommands:\n");
    for (const auto& c : cli::registry()) {
        std::fprintf(out, "  ruvo %s %s\n      %s\n", c.name, c.usage, c.summary);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || std::strcmp(argv[1], "help") == 0 || std::strcmp(argv[1], "--help") == 0) {
        printUsage(argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    for (const auto& c : cli::registry()) {
        if (std::strcmp(argv[1], c.name) != 0) continue;
        try {
            return c.run(cli::Args(argv + 2, argv + argc));
        } catch (const cli::UsageError& e) {
            std::fprintf(stderr, "ruvo %s: %s\nusage: ruvo %s %s\n", c.name, e.what(), c.name,
                         c.usage);
            return 2;
        } catch (const std::exception& e) {
            std::fprintf(stderr, "ruvo %s: %s\n", c.name, e.what());
            return 1;
        }
    }
    std::fprintf(stderr, "ruvo: unknown command \"%s\"\n\n", argv[1]);
    printUsage(stderr);
    return 2;
}
