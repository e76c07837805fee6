#include <windows.h>

#include <atomic>
#include <vector>

#include "platform/process.h"

namespace platform {

struct ChildProcess::Impl {
    PROCESS_INFORMATION info{};
    HANDLE readEnd = nullptr;
    std::atomic<bool> ended{false};
};

ChildProcess::ChildProcess() : impl(new Impl) {}

ChildProcess::~ChildProcess() {
    if (impl->readEnd) CloseHandle(impl->readEnd);
    if (impl->info.hThread) CloseHandle(impl->info.hThread);
    if (impl->info.hProcess) CloseHandle(impl->info.hProcess);
}

bool ChildProcess::start(const std::string& commandLine, std::string& error) {
    SECURITY_ATTRIBUTES sa{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE writeEnd = nullptr;
    if (!CreatePipe(&impl->readEnd, &writeEnd, &sa, 0)) {
        error = "CreatePipe failed: " + std::to_string(GetLastError());
        return false;
    }
    if (!SetHandleInformation(impl->readEnd, HANDLE_FLAG_INHERIT, 0)) {
        error = "SetHandleInformation failed: " + std::to_string(GetLastError());
        CloseHandle(impl->readEnd);
        CloseHandle(writeEnd);
        impl->readEnd = nullptr;
        return false;
    }
    STARTUPINFOW si{};
    si.cb = sizeof(si);
    si.hStdOutput = writeEnd;
    si.hStdError = writeEnd;
    si.dwFlags |= STARTF_USESTDHANDLES;
    // The line is in the active code page, as the command of the tool layout expects.
    const int n = MultiByteToWideChar(CP_ACP, 0, commandLine.c_str(), -1, nullptr, 0);
    std::vector<wchar_t> wide(static_cast<size_t>(n > 0 ? n : 1));
    MultiByteToWideChar(CP_ACP, 0, commandLine.c_str(), -1, wide.data(), n);
    if (!CreateProcessW(nullptr, wide.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                        nullptr, &si, &impl->info)) {
        error = "CreateProcess failed: " + std::to_string(GetLastError());
        CloseHandle(writeEnd);
        CloseHandle(impl->readEnd);
        impl->readEnd = nullptr;
        return false;
    }
    CloseHandle(writeEnd);
    return true;
}

void ChildProcess::readAll(const std::function<void(const char*, size_t)>& sink) {
    if (impl->readEnd == nullptr) return;
    char buffer[2048];
    DWORD n = 0;
    while (ReadFile(impl->readEnd, buffer, sizeof(buffer) - 1, &n, nullptr) && n > 0) sink(buffer, n);
}

int ChildProcess::wait() {
    if (impl->info.hProcess == nullptr) return -1;
    WaitForSingleObject(impl->info.hProcess, INFINITE);
    DWORD code = 0;
    impl->ended = true;
    return GetExitCodeProcess(impl->info.hProcess, &code) ? static_cast<int>(code) : -1;
}

void ChildProcess::terminate() {
    if (impl->info.hProcess != nullptr && !impl->ended) TerminateProcess(impl->info.hProcess, 0);
}

}  // namespace platform
