#pragma once
// Helpers of the POSIX-only tests (*_posix_test.cpp): child processes and file modes.

#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace testing_support {

// Runs `body` in a child process and gives its exit code (-1 when it did not exit).
template <typename Body>
int inChild(Body body) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body());
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Permission and set-id bits of the entry itself (a link is not followed); 0 if absent.
inline unsigned modeOf(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return 0;
    return st.st_mode & 07777;
}

}  // namespace testing_support
