#pragma once
// Shared helpers: scratch directories that clean up after themselves, listings, the tool tree.
// The POSIX-only ones (child processes, file modes) are in posix_test_support.h.

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <system_error>

#include <algorithm>
#include <vector>

namespace testing_support {

// A Windows host, told by the standard library rather than the preprocessor.
inline constexpr bool kWindowsHost = std::filesystem::path::preferred_separator == '\\';

class TempDir {
public:
    // A fresh directory of a random name; creating it fails when the name is taken, so it is
    // ours alone. The path is the system's own spelling, as the current directory reads back.
    TempDir() {
        const std::filesystem::path base = std::filesystem::temp_directory_path();
        std::random_device seed;
        std::mt19937_64 random(seed());
        static const char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
        for (int attempt = 0; attempt < 100 && path_.empty(); ++attempt) {
            std::string name = "ruvo_test_";
            for (int i = 0; i < 12; ++i) name += kLetters[random() % (sizeof kLetters - 1)];
            std::error_code ec;
            if (std::filesystem::create_directory(base / name, ec) && !ec) {
                std::filesystem::permissions(base / name, std::filesystem::perms::owner_all, ec);
                path_ = (base / name).string();
            }
        }
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// The whole file, "" when it cannot be read.
inline std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

// The whole file with the host's line ends read as '\n': text files end their
// lines with "\r\n" on Windows.
inline std::string slurpText(const std::string& path) {
    std::string text = slurp(path);
    if (!kWindowsHost) return text;
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
        out += text[i];
    }
    return out;
}

// The names in a directory, sorted.
inline std::vector<std::string> namesIn(const std::string& dir) {
    std::vector<std::string> out;
    for (const auto& e : std::filesystem::directory_iterator(dir)) out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
}

// Whether the tool tree under `toolTree` lacks a clang++ this host can run. The Windows build
// lays out the POSIX tree (its clang++ is a Linux program), so tests compiling applets skip there.
inline bool compilerMissing(const std::string& toolTree) {
    const std::filesystem::path compiler =
        std::filesystem::path(toolTree) / "Ruvo" / "clang_compiler" / (kWindowsHost ? "clang++.exe" : "clang++");
    std::error_code ec;
    return !std::filesystem::exists(compiler, ec);
}

// The reason tests that compile applets give when they skip.
inline constexpr const char* kNeedsCompiler = "needs clang++ in the tool tree; the Windows build has none";

// An installation of its own under `dir`: the tool tree's programs and libraries linked from
// `toolTree`, its include texts copied, so a test may rewrite them (the generated "database.h").
inline void makeInstallation(const std::string& dir, const std::string& toolTree) {
    namespace fs = std::filesystem;
    const fs::path from = fs::path(toolTree) / "Ruvo", to = fs::path(dir) / "Ruvo";
    fs::create_directories(to);
    for (const char* linked : {"clang_compiler", "clang_format", "RuvoBase", "KELN_Ruvo_Lib"})
        fs::create_directory_symlink(fs::canonical(from / linked), to / linked);
    fs::copy(from / "KELN_Ruvo_Include", to / "KELN_Ruvo_Include",
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

}  // namespace testing_support
