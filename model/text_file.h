#pragma once
// Whole-file reads and crash-safe writes.

#include <string>

namespace ruvo {

// Reads the whole file in binary mode; false if it does not open.
bool readWholeFile(const std::string& path, std::string& out);

enum class WriteResult { Written, OpenFailed, WriteFailed };

// Writes to a temporary file beside `path` and renames it over `path`, so an interrupted
// write leaves the old file whole. On failure `error` says why.
WriteResult writeFileAtomically(const std::string& path, const std::string& text,
                                std::string& error);

// The directory the tool tree hangs below: the process's current directory.
std::string currentDirectory();

}  // namespace ruvo
