#pragma once
// Shared helpers: scratch directories that clean up after themselves, child processes, file
// modes and listings.

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace testing_support {

class TempDir {
public:
    TempDir() {
        std::string tmpl = (std::filesystem::temp_directory_path() / "ruvo_test_XXXXXX").string();
        path_ = ::mkdtemp(&tmpl[0]) ? tmpl : std::string();
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

// The names in a directory, sorted.
inline std::vector<std::string> namesIn(const std::string& dir) {
    std::vector<std::string> out;
    for (const auto& e : std::filesystem::directory_iterator(dir)) out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
}

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
