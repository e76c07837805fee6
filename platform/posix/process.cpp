#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "platform/process.h"

extern char** environ;

namespace platform {

struct ChildProcess::Impl {
    std::mutex mutex;  // pid and reaped: terminate may run beside wait
    pid_t pid = -1;
    bool reaped = false;
    int exitCode = -1;
    int outFd = -1;
    int errFd = -1;
};

namespace {

void closeFd(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

// Keeps pipe ends off 0-2, so the child's redirections cannot overwrite one another.
bool liftAboveStdio(int& fd) {
    if (fd > STDERR_FILENO) return true;
    const int lifted = ::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (lifted < 0) return false;
    ::close(fd);
    fd = lifted;
    return true;
}

bool makePipe(int fds[2], ChildProcess::Failure& failure) {
    if (::pipe2(fds, O_CLOEXEC) != 0 || !liftAboveStdio(fds[0]) || !liftAboveStdio(fds[1])) {
        failure.stage = ChildProcess::Failure::Stage::Pipe;
        failure.code = errno;
        failure.text = "CreatePipe failed: " + std::to_string(errno);
        return false;
    }
    return true;
}

// Appends what `fd` has now; false once the writers are gone.
bool readSome(int fd, std::string& into) {
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof(buffer) - 1);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        into.append(buffer, static_cast<size_t>(n));
        return true;
    }
}

}  // namespace

ChildProcess::ChildProcess() : impl(new Impl) {}

ChildProcess::~ChildProcess() {
    closeFd(impl->outFd);
    closeFd(impl->errFd);
    terminate();
    wait();
}

bool ChildProcess::start(const Command& command, Output output, Failure& failure) {
    if (command.argv.empty()) {
        failure.stage = Failure::Stage::Start;
        failure.code = ENOENT;
        failure.text = "CreateProcess failed: " + std::to_string(ENOENT);
        return false;
    }
    int out[2] = {-1, -1};
    int err[2] = {-1, -1};
    if (!makePipe(out, failure)) return false;
    if (output == Output::Separate && !makePipe(err, failure)) {
        closeFd(out[0]);
        closeFd(out[1]);
        return false;
    }
    const int errWriter = output == Output::Separate ? err[1] : out[1];

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errWriter, STDERR_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);

    // Own group, so terminate reaches what the program starts too; the host's signal
    // dispositions and mask are not the child's business.
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int sig : {SIGPIPE, SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGCHLD, SIGALRM, SIGUSR1, SIGUSR2}) {
        sigaddset(&defaults, sig);
    }
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setpgroup(&attr, 0);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                        POSIX_SPAWN_SETSIGDEF);

    std::vector<char*> argv;
    argv.reserve(command.argv.size() + 1);
    for (const std::string& arg : command.argv) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);

    pid_t pid = -1;
    // posix_spawn, not posix_spawnp: the path is used as given. glibc reports a failed exec
    // (ENOENT, EACCES, ...) as the result.
    const int rc = ::posix_spawn(&pid, argv[0], &actions, &attr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    closeFd(out[1]);
    closeFd(err[1]);
    if (rc != 0) {
        closeFd(out[0]);
        closeFd(err[0]);
        failure.stage = Failure::Stage::Start;
        failure.code = rc;
        failure.text = "CreateProcess failed: " + std::to_string(rc);
        return false;
    }
    std::lock_guard<std::mutex> lock(impl->mutex);
    impl->pid = pid;
    impl->outFd = out[0];
    impl->errFd = err[0];
    return true;
}

void ChildProcess::readAll(const std::function<void(const char*, size_t)>& sink) {
    if (impl->outFd < 0) return;
    char buffer[2048];
    for (;;) {
        const ssize_t n = ::read(impl->outFd, buffer, sizeof(buffer) - 1);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        sink(buffer, static_cast<size_t>(n));
    }
}

void ChildProcess::readSeparately(std::string& out, std::string& err) {
    pollfd fds[2] = {{impl->outFd, POLLIN, 0}, {impl->errFd, POLLIN, 0}};
    std::string* into[2] = {&out, &err};
    while (fds[0].fd >= 0 || fds[1].fd >= 0) {
        // A negative fd is skipped by poll.
        const int ready = ::poll(fds, 2, -1);
        if (ready < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            if (!readSome(fds[i].fd, *into[i])) fds[i].fd = -1;
        }
    }
}

int ChildProcess::wait() {
    pid_t pid;
    {
        std::lock_guard<std::mutex> lock(impl->mutex);
        if (impl->pid <= 0) return -1;
        if (impl->reaped) return impl->exitCode;
        pid = impl->pid;
    }
    // Wait without reaping: until it is reaped, the pid and the group cannot be reused, so a
    // terminate racing with the end cannot hit a stranger.
    siginfo_t info{};
    int r;
    do {
        r = ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
    } while (r < 0 && errno == EINTR);

    std::lock_guard<std::mutex> lock(impl->mutex);
    if (impl->reaped) return impl->exitCode;
    int status = 0;
    pid_t done;
    do {
        done = ::waitpid(pid, &status, 0);
    } while (done < 0 && errno == EINTR);
    impl->reaped = true;
    if (done == pid) {
        impl->exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return impl->exitCode;
}

void ChildProcess::terminate() {
    std::lock_guard<std::mutex> lock(impl->mutex);
    if (impl->pid > 0 && !impl->reaped) ::kill(-impl->pid, SIGKILL);
}

}  // namespace platform
