#pragma once
// Durable file replacement: a new file created exclusively, flushed to the device, renamed over
// the old one, and the directory entry flushed too. Every call returns 0 or the OS error number.

#include <cstddef>
#include <string>

namespace platform {

// Creates `path` for writing; fails with EEXIST when anything is there, a link included. The
// descriptor is not inherited by child processes. The mode is the default one for new files.
int createExclusive(const std::string& path, int& fd);
// Writes every byte, retrying short writes. The data is text: on Windows its line ends are
// written as "\r\n".
int writeAll(int fd, const char* data, std::size_t size);
// Gives the open file the permission bits of the regular file `like`. Nothing happens when
// `like` is missing or is no regular file: a link is not followed.
int copyPermissions(int fd, const std::string& like);
int syncFile(int fd);
int closeFile(int fd);
// Replaces `to` by `from` in one step; a link at `to` is replaced itself, never followed.
int replaceFile(const std::string& from, const std::string& to);
// Flushes the directory's entries, so a rename in it survives a power cut.
int syncDirectory(const std::string& dir);
// The system's text for an error number.
std::string errorText(int code);

}  // namespace platform
