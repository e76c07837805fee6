#include <windows.h>

#include <mutex>
#include <thread>
#include <vector>

#include "platform/process.h"

namespace platform {

struct ChildProcess::Impl {
    std::mutex mutex;  // terminate may run beside wait
    PROCESS_INFORMATION info{};
    bool ended = false;
    HANDLE outRead = nullptr;
    HANDLE errRead = nullptr;
};

namespace {

void closeHandle(HANDLE& h) {
    if (h != nullptr) CloseHandle(h);
    h = nullptr;
}

ChildProcess::Failure pipeFailure(const char* call) {
    ChildProcess::Failure f;
    f.stage = ChildProcess::Failure::Stage::Pipe;
    f.code = static_cast<int>(GetLastError());
    f.text = std::string(call) + " failed: " + std::to_string(f.code);
    return f;
}

// An inheritable pipe whose read end stays with us.
bool makePipe(HANDLE& read, HANDLE& write, ChildProcess::Failure& failure) {
    SECURITY_ATTRIBUTES sa{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    if (!CreatePipe(&read, &write, &sa, 0)) {
        failure = pipeFailure("CreatePipe");
        return false;
    }
    if (!SetHandleInformation(read, HANDLE_FLAG_INHERIT, 0)) {
        failure = pipeFailure("SetHandleInformation");
        closeHandle(read);
        closeHandle(write);
        return false;
    }
    return true;
}

void drain(HANDLE pipe, std::string& into) {
    char buffer[4096];
    DWORD n = 0;
    while (ReadFile(pipe, buffer, sizeof(buffer) - 1, &n, nullptr) && n > 0) into.append(buffer, n);
}

}  // namespace

ChildProcess::ChildProcess() : impl(new Impl) {}

ChildProcess::~ChildProcess() {
    closeHandle(impl->outRead);
    closeHandle(impl->errRead);
    terminate();
    wait();
    closeHandle(impl->info.hThread);
    closeHandle(impl->info.hProcess);
}

bool ChildProcess::start(const Command& command, Output output, Failure& failure) {
    HANDLE outWrite = nullptr;
    HANDLE errWrite = nullptr;
    if (!makePipe(impl->outRead, outWrite, failure)) return false;
    if (output == Output::Separate && !makePipe(impl->errRead, errWrite, failure)) {
        closeHandle(impl->outRead);
        closeHandle(outWrite);
        return false;
    }
    PROCESS_INFORMATION info{};
    BOOL started = FALSE;
    if (output == Output::Merged) {
        STARTUPINFOW si{};
        si.cb = sizeof(si);
        si.hStdOutput = outWrite;
        si.hStdError = outWrite;
        si.dwFlags |= STARTF_USESTDHANDLES;
        // The line is in the active code page, as the command of the tool layout expects.
        const int n = MultiByteToWideChar(CP_ACP, 0, command.windowsLine.c_str(), -1, nullptr, 0);
        std::vector<wchar_t> wide(static_cast<size_t>(n > 0 ? n : 1));
        MultiByteToWideChar(CP_ACP, 0, command.windowsLine.c_str(), -1, wide.data(), n);
        started = CreateProcessW(nullptr, wide.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                                 nullptr, nullptr, &si, &info);
    } else {
        STARTUPINFOA si{};
        si.cb = sizeof(si);
        si.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW;
        si.wShowWindow = SW_HIDE;
        si.hStdOutput = outWrite;
        si.hStdError = errWrite;
        // CreateProcessA may write into the line: a copy as long as it needs.
        std::vector<char> line(command.windowsLine.begin(), command.windowsLine.end());
        line.push_back('\0');
        started = CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                                 &si, &info);
    }
    const DWORD startError = started ? 0 : GetLastError();
    closeHandle(outWrite);
    closeHandle(errWrite);
    if (!started) {
        closeHandle(impl->outRead);
        closeHandle(impl->errRead);
        failure.stage = Failure::Stage::Start;
        failure.code = static_cast<int>(startError);
        failure.text = "CreateProcess failed: " + std::to_string(startError);
        return false;
    }
    std::lock_guard<std::mutex> lock(impl->mutex);
    impl->info = info;
    return true;
}

void ChildProcess::readAll(const std::function<void(const char*, size_t)>& sink) {
    if (impl->outRead == nullptr) return;
    char buffer[2048];
    DWORD n = 0;
    while (ReadFile(impl->outRead, buffer, sizeof(buffer) - 1, &n, nullptr) && n > 0) sink(buffer, n);
}

void ChildProcess::readSeparately(std::string& out, std::string& err) {
    // Anonymous pipes have no overlapped reads: the error pipe drains on a thread of its own.
    std::thread errors;
    if (impl->errRead != nullptr) errors = std::thread([this, &err] { drain(impl->errRead, err); });
    if (impl->outRead != nullptr) drain(impl->outRead, out);
    if (errors.joinable()) errors.join();
}

int ChildProcess::wait() {
    HANDLE process;
    {
        std::lock_guard<std::mutex> lock(impl->mutex);
        process = impl->info.hProcess;
    }
    if (process == nullptr) return -1;
    WaitForSingleObject(process, INFINITE);
    std::lock_guard<std::mutex> lock(impl->mutex);
    impl->ended = true;
    DWORD code = 0;
    return GetExitCodeProcess(process, &code) ? static_cast<int>(code) : -1;
}

void ChildProcess::terminate() {
    // The handle stays open until destruction, so it cannot name another process.
    std::lock_guard<std::mutex> lock(impl->mutex);
    if (impl->info.hProcess != nullptr && !impl->ended) TerminateProcess(impl->info.hProcess, 0);
}

}  // namespace platform
