#include "build/AppletCompiler.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <regex>
#include <thread>

#include "model/MpRuvo.h"
#include "model/manager_port.h"
#include "build/compile_command.h"
#include "build/prebuilt.h"
#include "host/log_interface.h"
#include "model/text_file.h"
#include "platform/process.h"
#include "platform/toolchain.h"

namespace {

const char* const kNotFound =
    "Please check if clang++. exe exists or if the file to be compiled exists.";

long long millisSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start)
        .count();
}

std::string printable(const platform::Command& command) {
    return command.argv.empty() ? command.windowsLine : ruvo::renderArguments(command.argv);
}

std::string toolRoot() {
    return ruvo::currentDirectory() + platform::pathSeparator() + "Ruvo";
}

}  // namespace

AppletCompiler& AppletCompiler::instance() {
    static std::once_flag once;
    static AppletCompiler* compiler = nullptr;
    std::call_once(once, [] { compiler = new AppletCompiler(); });
    return *compiler;
}

std::string AppletCompiler::output() {
    std::lock_guard<std::mutex> lock(mutex);
    return outputText;
}

int AppletCompiler::compile(const std::string& name) {
    MpRuvo* applet = ruvo::findApplet(name);
    if (applet == nullptr) {
        std::lock_guard<std::mutex> lock(mutex);
        outputText = "compile() applet is null";
        return 1;
    }
    return build(name, applet->getCodePath(), applet->getMpDllFullPath());
}

int AppletCompiler::build(const std::string& name, const std::string& codePath,
                          const std::string& modulePath) {
    copyBaseFiles(codePath);
    {
        std::lock_guard<std::mutex> lock(mutex);
        outputPath = modulePath;
    }
    ruvo::CompileCommandInput in{ruvo::currentDirectory(), std::thread::hardware_concurrency(),
                                 codePath, modulePath};
    platform::Command command;
    if (platform::hostToolchain() == platform::Toolchain::Windows) {
        command.windowsLine = ruvo::windowsCompileCommand(in);
        return run(name, command);
    }
    const ruvo::PrebuiltPieces pieces = ruvo::preparePrebuilt(in.currentDir);
    command.argv = ruvo::posixCompileArguments(in, pieces);
    const int r = run(name, command);
    if (pieces.prefixPch.empty() || !ruvo::reportsStalePrefix(output())) return r;
    // Headers changed under the prefix: compile the plain way; the next compile makes it anew.
    ruvo::discardPrebuilt(pieces);
    command.argv = ruvo::posixCompileArguments(in);
    return run(name, command);
}

int AppletCompiler::run(const std::string& name, const platform::Command& command) {
    log_interface::log_debug("%s", printable(command).c_str());
    const auto start = std::chrono::steady_clock::now();
    auto process = std::make_shared<platform::ChildProcess>();
    {
        std::lock_guard<std::mutex> lock(mutex);
        outputText.clear();
    }
    platform::ChildProcess::Failure failure;
    if (!process->start(command, platform::ChildProcess::Output::Merged, failure)) {
        std::lock_guard<std::mutex> lock(mutex);
        if (failure.stage == platform::ChildProcess::Failure::Stage::Pipe) {
            std::cerr << failure.text << std::endl;
            outputText = kNotFound;
        } else {
            outputText = "CreateProcess failed: " + std::to_string(failure.code) + ". " + kNotFound;
        }
        return 1;
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        processes[name] = process;
    }
    process->readAll([this](const char* data, size_t n) {
        std::lock_guard<std::mutex> lock(mutex);
        outputText.append(data, n);
    });
    std::string text;
    {
        std::lock_guard<std::mutex> lock(mutex);
        outputText += "Compilation completed.\n";
        text = outputText;
    }
    // Failure is told from the output's words alone; the exit code is only shown.
    const int exitCode = process->wait();
    std::cout << "Output: " << text << std::endl;
    std::cout << "Exit Code: " << exitCode << std::endl;
    std::printf("***********************************createPipe time = %lld ms\n", millisSince(start));
    std::fflush(stdout);
    return 0;
}

void AppletCompiler::stop(const std::string& name) {
    std::lock_guard<std::mutex> lock(mutex);
    const auto it = processes.find(name);
    if (it == processes.end()) return;
    it->second->terminate();
    processes.erase(it);
    outputText = "error! compile stop! \n";
}

bool AppletCompiler::outputReportsError(const std::string& text) {
    static const std::regex kError("\\berror\\b", std::regex::ECMAScript);
    static const std::regex kErrors("\\berrors\\b", std::regex::ECMAScript);
    return std::regex_search(text, kError) || std::regex_search(text, kErrors);
}

void AppletCompiler::startCompileThread(const std::string& name, RuvoCompileCallback callback,
                                        bool serialised) {
    std::thread([name, callback, serialised] {
        static std::mutex noSaveMutex;
        std::unique_lock<std::mutex> hold(noSaveMutex, std::defer_lock);
        if (serialised) hold.lock();
        const auto start = std::chrono::steady_clock::now();
        AppletCompiler& compiler = AppletCompiler::instance();
        int r = compiler.compile(name);
        const std::string text = compiler.output();
        const auto ms = static_cast<unsigned long long>(millisSince(start));
        if (outputReportsError(text)) r = CR_FAILURE;
        callback(static_cast<compileResult>(r), ms, name.c_str(), text.c_str());
    }).detach();
}

int AppletCompiler::format(const std::string& path) {
    platform::Command command;
    if (platform::hostToolchain() == platform::Toolchain::Windows) {
        command.windowsLine = ruvo::windowsFormatCommand(ruvo::currentDirectory(), path);
    } else {
        command.argv = ruvo::posixFormatArguments(ruvo::currentDirectory(), path);
    }
    platform::ChildProcess process;
    platform::ChildProcess::Failure failure;
    if (!process.start(command, platform::ChildProcess::Output::Separate, failure)) {
        if (failure.stage == platform::ChildProcess::Failure::Stage::Pipe) {
            std::cerr << failure.text << std::endl;
            return -1;
        }
        std::cerr << "CreateProcessA(clang-format) failed: " << failure.code << std::endl;
        return -2;
    }
    // Both pipes drain while the tool runs, so a long diagnostic cannot stall it; nothing is
    // shown before it has ended.
    std::string out, err;
    out.reserve(10240);
    err.reserve(2048);
    process.readSeparately(out, err);
    const int exitCode = process.wait();
    if (!out.empty()) std::cout << "clang-format output:\n" << out << std::endl;
    if (!err.empty()) std::cout << "clang-format error:\n" << err << std::endl;
    return exitCode == 0 ? 0 : -3;
}

void AppletCompiler::copyBaseFiles(const std::string& codePath) {
    const std::string base = toolRoot() + platform::pathSeparator() + "RuvoBase" +
                             platform::pathSeparator();
    copyFile(base + "RuvoBase.h", codePath);
    copyFile(base + "RuvoBase.cpp", codePath);
}

void AppletCompiler::copyFile(const std::string& source, const std::string& targetDir) {
    namespace fs = std::filesystem;
    try {
        if (!fs::exists(source) || !fs::is_regular_file(source)) return;
        if (!fs::exists(targetDir)) fs::create_directories(targetDir);
        if (!fs::is_directory(targetDir)) return;
        const fs::path target = fs::path(targetDir) / fs::path(source).filename();
        fs::copy_file(source, target, fs::copy_options::overwrite_existing);
    } catch (const fs::filesystem_error& e) {
        std::cerr << "Filesystem error: " << e.what() << std::endl;
    }
}
