#include "model/text_file.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace ruvo {

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

WriteResult writeFileAtomically(const std::string& path, const std::string& text,
                                std::string& error) {
    static std::atomic<unsigned> counter{0};
    const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    const std::string temp = path + ".tmp" + std::to_string(stamp) + "_" +
                             std::to_string(counter.fetch_add(1));
    std::FILE* f = std::fopen(temp.c_str(), "w");
    if (f == nullptr) {
        error = "cannot open " + temp + ": " + std::strerror(errno);
        return WriteResult::OpenFailed;
    }
    const bool written = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    const int savedErrno = errno;
    const bool closed = std::fclose(f) == 0;
    if (!written || !closed) {
        error = "cannot write " + temp + ": " + std::strerror(written ? errno : savedErrno);
        std::remove(temp.c_str());
        return WriteResult::WriteFailed;
    }
    std::error_code ec;
    std::filesystem::rename(temp, path, ec);
    if (ec) {
        error = "cannot replace " + path + ": " + ec.message();
        std::remove(temp.c_str());
        return WriteResult::WriteFailed;
    }
    return WriteResult::Written;
}

std::string currentDirectory() {
    std::error_code ec;
    const auto dir = std::filesystem::current_path(ec);
    return ec ? std::string(".") : dir.string();
}

}  // namespace ruvo
