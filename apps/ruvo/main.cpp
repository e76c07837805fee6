#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include <filesystem>
#include <system_error>

#include "apps/ruvo/cli.h"
#include "host/log_interface.h"
#include "platform/toolchain.h"

namespace cli {
std::vector<Command>& registry() {
    static std::vector<Command> commands;
    return commands;
}

namespace {
std::filesystem::path& userDirectory() {
    static std::filesystem::path dir;
    return dir;
}
}  // namespace

void rememberUserDirectory() {
    std::error_code ec;
    userDirectory() = std::filesystem::current_path(ec);
}

std::string userPath(const std::string& path) {
    const std::filesystem::path p(path);
    std::string out = (p.is_absolute() ? p : userDirectory() / p).lexically_normal().string();
    while (out.size() > 1 && out.back() == '/') out.pop_back();
    return out;
}
}  // namespace cli

namespace {

// Like a host, run in the installation directory, where the tool tree (Ruvo/) hangs: bin/..
void enterInstallationDirectory() {
    namespace fs = std::filesystem;
    const std::string exe = platform::executablePath();
    if (exe.empty()) return;
    const fs::path root = fs::path(exe).parent_path().parent_path();
    std::error_code ec;
    if (fs::is_directory(root / "Ruvo", ec)) fs::current_path(root, ec);
}

void printUsage(std::FILE* out) {
    std::fprintf(out, "usage: ruvo COMMAND [ARGS]\n\ncommands:\n");
    for (const auto& c : cli::registry()) {
        std::fprintf(out, "  ruvo %s %s\n      %s\n", c.name, c.usage, c.summary);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (std::getenv("RUVO_VERBOSE") == nullptr) log_interface::setEchoLevel(log_interface::Level::Info);
    if (argc < 2 || std::strcmp(argv[1], "help") == 0 || std::strcmp(argv[1], "--help") == 0) {
        printUsage(argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    for (const auto& c : cli::registry()) {
        if (std::strcmp(argv[1], c.name) != 0) continue;
        try {
            cli::Args args(argv + 2, argv + argc);
            // The project path is the user's, relative to where the command was typed.
            cli::rememberUserDirectory();
            if (!args.empty() && args[0].rfind("-", 0) != 0) args[0] = cli::userPath(args[0]);
            enterInstallationDirectory();
            return c.run(args);
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
