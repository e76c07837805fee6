#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
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

void requireName(ruvo::NameKind kind, const std::string& name) {
    if (!ruvo::nameProblem(kind, name).empty()) throw BadName(kind, name);
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

const cli::Command* findCommand(const std::string& name) {
    for (const auto& c : cli::registry()) {
        if (name == c.name) return &c;
    }
    return nullptr;
}

void printUsage(std::FILE* out) {
    std::fprintf(out,
                 "usage: ruvo COMMAND [ARGS]\n"
                 "       ruvo help [COMMAND] | ruvo COMMAND --help | ruvo --version\n\ncommands:\n");
    // The road of a session first; commands not named here follow in registration order.
    static const char* const kOrder[] = {"new", "list", "show", "rm", "func", "bind", "unbind",
                                         "gen", "convert", "compile", "run", "exec", "demo",
                                         "dbc", "decode"};
    std::vector<const cli::Command*> listed;
    for (const char* name : kOrder) {
        if (const cli::Command* c = findCommand(name)) listed.push_back(c);
    }
    for (const auto& c : cli::registry()) {
        if (std::find(listed.begin(), listed.end(), &c) == listed.end()) listed.push_back(&c);
    }
    for (const cli::Command* c : listed) {
        std::fprintf(out, "  ruvo %s%s%s\n      %s\n", c->name, c->usage[0] ? " " : "", c->usage,
                     c->summary);
    }
    std::fprintf(out,
                 "\nProject paths are taken relative to the current directory. RUVO_VERBOSE=1 also\n"
                 "shows the host's debug lines. Exit status: 0 done, 1 failed, 2 wrong arguments.\n");
}

void printCommandHelp(const cli::Command& c) {
    std::printf("usage: ruvo %s%s%s\n\n%s\n", c.name, c.usage[0] ? " " : "", c.usage, c.summary);
    const char* details = c.details;
    if (details != nullptr) std::printf("\n%s\n", details);
}

bool isHelpOption(const std::string& a) { return a == "--help" || a == "-h"; }

int wrongArguments(const char* format, const char* what) {
    std::fprintf(stderr, format, what);
    std::fprintf(stderr, "\n\n");
    printUsage(stderr);
    return 2;
}

int runCommand(const cli::Command& c, cli::Args args) {
    try {
        // The project path is the user's, relative to where the command was typed.
        cli::rememberUserDirectory();
        // Every command that takes arguments begins with the project; options come after it.
        if (!c.optionsFirst) {
            if (!args.empty() && args[0].rfind("-", 0) == 0) throw cli::UsageError("unknown option " + args[0]);
            if (!args.empty()) args[0] = cli::userPath(args[0]);
        }
        enterInstallationDirectory();
        return c.run(args);
    } catch (const cli::UsageError& e) {
        std::fprintf(stderr, "ruvo %s: %s\nusage: ruvo %s%s%s\n(ruvo help %s tells more)\n", c.name,
                     e.what(), c.name, c.usage[0] ? " " : "", c.usage, c.name);
        return 2;
    } catch (const cli::BadName& e) {
        const std::string call = std::string("ruvo ") + c.name;
        std::fprintf(stderr, "%s\n", ruvo::badNameMessage(call.c_str(), e.kind, e.name).c_str());
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "ruvo %s: %s\n", c.name, e.what());
        return 1;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (std::getenv("RUVO_VERBOSE") == nullptr) log_interface::setEchoLevel(log_interface::Level::Info);
    if (argc < 2) {
        printUsage(stderr);
        return 2;
    }
    const std::string first = argv[1];
    if (first == "help" || isHelpOption(first)) {
        if (argc == 2) {
            printUsage(stdout);
            return 0;
        }
        if (argc > 3) return wrongArguments("ruvo: %s takes at most one command", argv[1]);
        const cli::Command* c = findCommand(argv[2]);
        if (c == nullptr) return wrongArguments("ruvo help: unknown command \"%s\"", argv[2]);
        printCommandHelp(*c);
        return 0;
    }
    if (first == "--version") {
        if (argc > 2) return wrongArguments("ruvo: %s takes no arguments", argv[1]);
        std::printf("ruvo %s\n", RUVO_VERSION);
        return 0;
    }
    if (first.rfind("-", 0) == 0) return wrongArguments("ruvo: unknown option \"%s\"", argv[1]);
    const cli::Command* c = findCommand(first);
    if (c == nullptr) return wrongArguments("ruvo: unknown command \"%s\"", argv[1]);
    const cli::Args args(argv + 2, argv + argc);
    for (const auto& a : args) {
        if (isHelpOption(a)) {
            printCommandHelp(*c);
            return 0;
        }
    }
    return runCommand(*c, args);
}
