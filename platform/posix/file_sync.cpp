#include "platform/file_sync.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

int createExclusive(const std::string& path, int& fd) {
    do {
        fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666);
    } while (fd < 0 && errno == EINTR);
    return fd < 0 ? errno : 0;
}

int writeAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        if (n == 0) return EIO;
        data += n;
        size -= static_cast<std::size_t>(n);
    }
    return 0;
}

int copyPermissions(int fd, const std::string& like) {
    struct stat st {};
    if (::lstat(like.c_str(), &st) != 0) return errno == ENOENT ? 0 : errno;
    if (!S_ISREG(st.st_mode)) return 0;
    // Permission bits only: set-id bits of a file someone else left must not reach ours.
    return ::fchmod(fd, st.st_mode & 0777) == 0 ? 0 : errno;
}

int syncFile(int fd) {
    while (::fsync(fd) != 0) {
        if (errno != EINTR) return errno;
    }
    return 0;
}

int closeFile(int fd) {
    // No retry on EINTR: the descriptor is gone either way on Linux.
    return ::close(fd) == 0 ? 0 : errno;
}

int replaceFile(const std::string& from, const std::string& to) {
    return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

int syncDirectory(const std::string& dir) {
    const int fd = ::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return errno;
    int result = 0;
    while (::fsync(fd) != 0) {
        if (errno == EINTR) continue;
        // Some file systems cannot sync a directory; their renames are as durable as they get.
        if (errno != EINVAL && errno != ENOTSUP) result = errno;
        break;
    }
    ::close(fd);
    return result;
}

std::string errorText(int code) { return std::strerror(code); }

}  // namespace platform
