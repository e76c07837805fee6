#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/process.h"

namespace platform {

struct ChildProcess::Impl {
    std::atomic<pid_t> pid{-1};
    int readFd = -1;
    std::atomic<bool> waited{false};
    int exitCode = -1;
};

ChildProcess::ChildProcess() : impl(new Impl) {}

ChildProcess::~ChildProcess() {
    if (impl->readFd >= 0) ::close(impl->readFd);
    if (impl->pid.load() > 0 && !impl->waited) wait();
}

bool ChildProcess::start(const std::string& commandLine, std::string& error) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        error = std::string("pipe failed: ") + std::strerror(errno);
        return false;
    }
    const pid_t pid = ::fork();
    if (pid < 0) {
        error = std::string("fork failed: ") + std::strerror(errno);
        ::close(fds[0]);
        ::close(fds[1]);
        return false;
    }
    if (pid == 0) {
        // Own process group, so terminate reaches the compiler below the shell too.
        ::setpgid(0, 0);
        ::dup2(fds[1], STDOUT_FILENO);
        ::dup2(fds[1], STDERR_FILENO);
        const int devNull = ::open("/dev/null", O_RDONLY);
        if (devNull >= 0) ::dup2(devNull, STDIN_FILENO);
        ::execl("/bin/sh", "sh", "-c", commandLine.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::setpgid(pid, pid);  // also here, so a terminate right after start finds the group
    ::close(fds[1]);
    impl->readFd = fds[0];
    impl->pid.store(pid);
    return true;
}

void ChildProcess::readAll(const std::function<void(const char*, size_t)>& sink) {
    if (impl->readFd < 0) return;
    char buffer[2048];
    for (;;) {
        const ssize_t n = ::read(impl->readFd, buffer, sizeof(buffer) - 1);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        sink(buffer, static_cast<size_t>(n));
    }
}

int ChildProcess::wait() {
    const pid_t pid = impl->pid.load();
    if (pid <= 0) return -1;
    if (impl->waited) return impl->exitCode;
    int status = 0;
    pid_t r;
    do {
        r = ::waitpid(pid, &status, 0);
    } while (r < 0 && errno == EINTR);
    impl->waited = true;
    if (r == pid) {
        impl->exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return impl->exitCode;
}

void ChildProcess::terminate() {
    const pid_t pid = impl->pid.load();
    if (pid > 0 && !impl->waited) ::kill(-pid, SIGKILL);
}

}  // namespace platform
