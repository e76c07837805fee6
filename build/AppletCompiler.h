#pragma once
// Runs the compiler for one applet and reports through one callback; also runs the formatter.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "model/keln_types.h"

namespace platform {
class ChildProcess;
struct Command;
}

// result, duration in ms, applet name, the complete output text
using RuvoCompileCallback =
    std::function<void(compileResult, unsigned long long, const char*, const char*)>;

class RUVO_API AppletCompiler {
public:
    static AppletCompiler& instance();

    // Builds the module of the named applet from what its code directory holds.
    int compile(const std::string& name);
    int build(const std::string& name, const std::string& codePath, const std::string& modulePath);
    // Runs the compiler with both output streams on one pipe; 0 once it ran, 1 if it could not.
    int run(const std::string& name, const platform::Command& command);
    // Kills the running compile of `name`; its thread then reports result 1.
    void stop(const std::string& name);
    std::string output();

    // clang-format in place: 0 for exit 0, -1 pipe failure, -2 no start, -3 other exit codes.
    int format(const std::string& path);
    static void copyBaseFiles(const std::string& codePath);
    static void copyFile(const std::string& source, const std::string& targetDir);

    // The compile of compileRuvo/compileRuvoNoSave on a detached thread; `serialised`
    // compiles run one at a time.
    static void startCompileThread(const std::string& name, RuvoCompileCallback callback,
                                   bool serialised);
    // True when the text reports a failure ("error" or "errors" as a whole word).
    static bool outputReportsError(const std::string& text);

private:
    AppletCompiler() = default;

    std::string reserved1;
    std::string outputPath;
    std::string reserved2;
    std::string outputText;
    std::map<std::string, std::shared_ptr<platform::ChildProcess>> processes;
    std::mutex mutex;  // the fields above: stop runs beside run on another thread
};
