#include "model/text_file.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <system_error>

#include "platform/file_sync.h"

namespace ruvo {

namespace {

namespace fs = std::filesystem;

constexpr char kTempMark[] = ".tmp-";
constexpr size_t kTempDigits = 16;

// Unpredictable, so nobody can place a link where the next temporary will be; O_EXCL refuses
// one anyway and a taken name is retried.
std::string randomDigits() {
    thread_local std::mt19937_64 engine{[] {
        std::random_device device;
        return (static_cast<std::uint64_t>(device()) << 32) ^ device();
    }()};
    static const char hex[] = "0123456789abcdef";
    std::uint64_t value = engine();
    std::string out(kTempDigits, '0');
    for (auto& c : out) {
        c = hex[value & 15];
        value >>= 4;
    }
    return out;
}

// Leftovers of writes that were killed: only our own pattern, only plain files, only old ones.
void removeStaleTemporaries(const fs::path& dir, const std::string& base) {
    std::error_code ec;
    const fs::path where = dir.empty() ? fs::path(".") : dir;
    fs::directory_iterator it(where, ec);
    if (ec) return;
    const auto limit = fs::file_time_type::clock::now() - std::chrono::seconds(kStaleTemporarySeconds);
    for (; it != fs::directory_iterator(); it.increment(ec)) {
        if (ec) return;
        const std::string name = it->path().filename().string();
        if (!isTemporaryName(name, base)) continue;
        std::error_code statusEc, timeEc;
        if (!fs::is_regular_file(it->symlink_status(statusEc)) || statusEc) continue;
        const auto written = fs::last_write_time(it->path(), timeEc);
        if (timeEc || written > limit) continue;
        fs::remove(it->path(), timeEc);
    }
}

std::string reason(const std::string& what, const std::string& path, int code) {
    return what + " " + path + ": " + platform::errorText(code);
}

}  // namespace

bool readWholeFile(const std::string& path, std::string& out) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return false;
    std::string text;
    char buffer[65536];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof(buffer), f)) > 0) text.append(buffer, n);
    const bool ok = std::ferror(f) == 0;
    std::fclose(f);
    if (ok) out.swap(text);
    return ok;
}

bool isTemporaryName(const std::string& name, const std::string& base) {
    const size_t mark = sizeof(kTempMark) - 1;
    if (name.size() != base.size() + mark + kTempDigits) return false;
    if (name.compare(0, base.size(), base) != 0) return false;
    if (name.compare(base.size(), mark, kTempMark) != 0) return false;
    for (size_t i = base.size() + mark; i < name.size(); ++i) {
        const char c = name[i];
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
    }
    return true;
}

WriteResult stageFile(const std::string& path, const std::string& text, StagedFile& staged,
                      std::string& error) {
    return stageStreamed(
        path, [&text](const TextSink& put) { put(text.data(), text.size()); }, staged, error);
}

WriteResult stageStreamed(const std::string& path, const TextProducer& produce, StagedFile& staged,
                          std::string& error) {
    staged = StagedFile{};
    const fs::path target(path);
    const std::string base = target.filename().string();
    if (base.empty() || base == "." || base == "..") {
        error = "cannot write " + path + ": names a directory, not a file";
        return WriteResult::WriteFailed;
    }
    removeStaleTemporaries(target.parent_path(), base);

    std::string temp;
    int fd = -1;
    int rc = EEXIST;
    for (int attempt = 0; attempt < 16 && rc == EEXIST; ++attempt) {
        temp = path + kTempMark + randomDigits();
        rc = platform::createExclusive(temp, fd);
    }
    if (rc != 0) {
        error = reason("cannot create a temporary file for", path, rc);
        // Only a missing directory counts as "cannot open": there is no old file to keep.
        return rc == ENOENT || rc == ENOTDIR ? WriteResult::OpenFailed : WriteResult::WriteFailed;
    }

    const char* step = "cannot write";
    rc = 0;
    produce([&rc, fd](const char* data, size_t size) {
        if (rc == 0) rc = platform::writeAll(fd, data, size);
    });
    if (rc == 0) {
        step = "cannot keep the permissions of";
        rc = platform::copyPermissions(fd, path);
    }
    if (rc == 0) {
        step = "cannot flush";
        rc = platform::syncFile(fd);
    }
    const int closed = platform::closeFile(fd);
    if (rc == 0 && closed != 0) {
        step = "cannot write";
        rc = closed;
    }
    if (rc != 0) {
        std::remove(temp.c_str());
        error = reason(step, path, rc);
        return WriteResult::WriteFailed;
    }
    staged.path = path;
    staged.temp = temp;
    return WriteResult::Written;
}

bool commitStaged(StagedFile& staged, std::string& error) {
    const int rc = platform::replaceFile(staged.temp, staged.path);
    if (rc != 0) {
        std::remove(staged.temp.c_str());
        error = reason("cannot replace", staged.path, rc);
    }
    staged.temp.clear();
    return rc == 0;
}

void discardStaged(StagedFile& staged) {
    if (!staged.temp.empty()) std::remove(staged.temp.c_str());
    staged.temp.clear();
}

bool syncDirectory(const std::string& dir, std::string& error) {
    const int rc = platform::syncDirectory(dir);
    if (rc != 0) error = reason("wrote but cannot flush the directory", dir.empty() ? "." : dir, rc);
    return rc == 0;
}

WriteResult writeFileAtomically(const std::string& path, const std::string& text,
                                std::string& error) {
    return writeFileAtomically(
        path, [&text](const TextSink& put) { put(text.data(), text.size()); }, error);
}

WriteResult writeFileAtomically(const std::string& path, const TextProducer& produce, std::string& error) {
    StagedFile staged;
    const WriteResult staging = stageStreamed(path, produce, staged, error);
    if (staging != WriteResult::Written) return staging;
    if (!commitStaged(staged, error)) return WriteResult::WriteFailed;
    return syncDirectory(fs::path(path).parent_path().string(), error) ? WriteResult::Written
                                                                        : WriteResult::WriteFailed;
}

std::string currentDirectory() {
    std::error_code ec;
    const auto dir = std::filesystem::current_path(ec);
    return ec ? std::string(".") : dir.string();
}

bool isLinkedDirectory(const std::string& dir) {
    std::string plain = dir;
    while (plain.size() > 1 && (plain.back() == '/' || plain.back() == '\\')) plain.pop_back();
    std::error_code ec;
    return std::filesystem::is_symlink(std::filesystem::symlink_status(plain, ec));
}

}  // namespace ruvo
