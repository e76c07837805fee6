#include "platform/file_sync.h"

#include <windows.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

namespace platform {

int createExclusive(const std::string& path, int& fd) {
    // Binary: writeAll gives the line ends the platform's form itself.
    const int rc = ::_sopen_s(&fd, path.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY | _O_NOINHERIT,
                              _SH_DENYWR, _S_IREAD | _S_IWRITE);
    if (rc != 0) fd = -1;
    return rc;
}

int writeAll(int fd, const char* text, std::size_t length) {
    // Line ends as Windows writes text: a lone "\n" becomes "\r\n". One that is already "\r\n"
    // (a text read back whole and written again) stays as it is, so rewrites never pile up "\r".
    std::string converted;
    converted.reserve(length + length / 32);
    for (std::size_t i = 0; i < length; ++i) {
        if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) converted += '\r';
        converted += text[i];
    }
    const char* data = converted.data();
    std::size_t size = converted.size();
    while (size > 0) {
        const unsigned chunk = size > 0x40000000u ? 0x40000000u : static_cast<unsigned>(size);
        const int n = ::_write(fd, data, chunk);
        if (n < 0) return errno;
        if (n == 0) return EIO;
        data += n;
        size -= static_cast<std::size_t>(n);
    }
    return 0;
}

int copyPermissions(int, const std::string&) {
    // A read-only file cannot be replaced anyway; there are no other bits to keep.
    return 0;
}

int syncFile(int fd) { return ::_commit(fd) == 0 ? 0 : errno; }

int closeFile(int fd) { return ::_close(fd) == 0 ? 0 : errno; }

int replaceFile(const std::string& from, const std::string& to) {
    if (::MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        return 0;
    }
    switch (::GetLastError()) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return ENOENT;
        case ERROR_ACCESS_DENIED:
            return EACCES;
        case ERROR_DISK_FULL:
        case ERROR_HANDLE_DISK_FULL:
            return ENOSPC;
        default:
            return EIO;
    }
}

int syncDirectory(const std::string&) {
    // MOVEFILE_WRITE_THROUGH already waits for the rename to reach the disk.
    return 0;
}

std::string errorText(int code) {
    char text[256] = {};
    ::strerror_s(text, sizeof(text), code);
    return text;
}

}  // namespace platform
