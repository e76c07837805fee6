#pragma once
// The ruvo command: a registry of sub-commands, each a small function.

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "model/names.h"

namespace cli {

// Raised for wrong arguments; main prints the command's usage and exits with 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Raised for a name that may not be used; main prints the text the SDK logs for it, with the
// command in place of the call, and exits with 1.
struct BadName : std::runtime_error {
    BadName(ruvo::NameKind kind, std::string name)
        : std::runtime_error("bad name"), kind(kind), name(std::move(name)) {}
    ruvo::NameKind kind;
    std::string name;
};

// Raises BadName unless `name` may be used as `kind`.
void requireName(ruvo::NameKind kind, const std::string& name);

using Args = std::vector<std::string>;

struct Command {
    const char* name;
    const char* usage;    // arguments, after the command name
    const char* summary;  // one line
    std::function<int(const Args&)> run;
    const char* details = nullptr;  // a few lines for "ruvo help COMMAND"
    // Arguments that begin with options ("ruvo decode --dbc F LOG"): the command makes its
    // paths absolute itself.
    bool optionsFirst = false;
};

// Each commands_*.cpp adds its commands here.
std::vector<Command>& registry();

struct Registrar {
    explicit Registrar(Command c) { registry().push_back(std::move(c)); }
};

// A path the user typed, made absolute against the directory the command was typed in (ruvo
// itself runs in its installation directory).
std::string userPath(const std::string& path);
void rememberUserDirectory();

// Opens PROJECT/APPLET_code/appletCfg.ruvo into the manager; raises runtime_error if absent.
std::string openApplet(const std::string& project, const std::string& applet);
std::string configPath(const std::string& project, const std::string& applet);
struct CompileOutcome {
    int result = 1;
    unsigned long long ms = 0;
    std::string text;  // diagnostics of the generated single file told as APPLET:FUNCTION:LINE
    std::string raw;   // the compiler's own text
    std::string module;  // where the module goes
    // The library tells failure from the compiler's words alone; a compiler that could not be
    // started at all (a shell's "not recognized") says none of them and writes nothing.
    bool moduleWritten = false;
    bool succeeded() const { return result == 0 && moduleWritten; }
};
// Saves, generates and compiles; waits for the one callback. The library's own chatter on
// stdout goes to stderr under RUVO_VERBOSE, else nowhere.
CompileOutcome compileApplet(const std::string& applet, bool showProgress);

// Prints the applet's model readably.
void showApplet(const std::string& applet);

}  // namespace cli
