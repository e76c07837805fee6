#pragma once
// Whole-file reads and crash-safe writes.

#include <cstddef>
#include <functional>
#include <string>

#include "platform/export.h"

namespace ruvo {

// Reads the whole file in binary mode; false if it does not open.
RUVO_API bool readWholeFile(const std::string& path, std::string& out);

// OpenFailed: the directory of the file is not there, nothing was written. WriteFailed: any
// other fault (full disk, no permission, read-only file system, a directory in the way).
enum class WriteResult { Written, OpenFailed, WriteFailed };

// Writes `text` to a new temporary file beside `path`, flushes it to the disk, renames it over
// `path` and flushes the directory, so a crash at any point leaves either the old or the new
// file, whole. A regular file at `path` keeps its permission bits; a link at `path` is replaced
// itself and its target is never touched. On failure the old file is intact, no temporary file
// is left, and `error` names the path and the system's reason.
RUVO_API WriteResult writeFileAtomically(const std::string& path, const std::string& text,
                                std::string& error);

// The same for a text written in pieces: `produce` hands each piece to the sink, so a large
// text never has to be held whole. After a failed piece the sink takes no more.
using TextSink = std::function<void(const char* data, size_t size)>;
using TextProducer = std::function<void(const TextSink& put)>;
RUVO_API WriteResult writeFileAtomically(const std::string& path, const TextProducer& produce,
                                         std::string& error);

// A write prepared by `stageFile`: the text is flushed to the disk under the name `temp`.
// Staging every file of a set before committing any keeps the old set whole when the disk
// fills up half-way.
struct StagedFile {
    std::string path;
    std::string temp;
};

// The first half of `writeFileAtomically`; on failure nothing is left behind.
WriteResult stageFile(const std::string& path, const std::string& text, StagedFile& staged,
                      std::string& error);
WriteResult stageStreamed(const std::string& path, const TextProducer& produce, StagedFile& staged,
                          std::string& error);
// Renames the temporary over its path; on failure removes it. The directory is not flushed.
bool commitStaged(StagedFile& staged, std::string& error);
// Removes the temporary of a write that is given up.
void discardStaged(StagedFile& staged);
// Flushes a directory's entries after renames into it ("" is the current directory).
bool syncDirectory(const std::string& dir, std::string& error);

// Temporaries of writes that a killed process left behind are removed by a later write to the
// same file once they are this old; younger ones may be another process's write in flight.
constexpr int kStaleTemporarySeconds = 600;

// True for the name of a temporary that a write of the file `base` makes.
bool isTemporaryName(const std::string& name, const std::string& base);

// The directory the tool tree hangs below: the process's current directory.
std::string currentDirectory();

// True when the directory `dir` (a trailing separator allowed) is itself a symbolic link: the
// applet's files are not written through one, since it may lead anywhere.
bool isLinkedDirectory(const std::string& dir);

}  // namespace ruvo
