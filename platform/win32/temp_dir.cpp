#include "platform/temp_dir.h"

#include <windows.h>

#include <filesystem>
#include <random>
#include <system_error>

namespace platform {

std::string makeTempDirectory(const std::string& prefix) {
    std::error_code ec;
    const auto base = std::filesystem::temp_directory_path(ec);
    if (ec) return "";
    // The user's temporary directory is the user's own; CreateDirectoryW fails on a name that
    // exists, so a name is never shared.
    std::random_device seed;
    std::mt19937_64 random(seed() ^ (static_cast<uint64_t>(GetCurrentProcessId()) << 32) ^ GetTickCount64());
    static const char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string suffix;
        for (int i = 0; i < 8; ++i) suffix += kDigits[random() % 36];
        const std::filesystem::path dir = base / (prefix + suffix);
        if (CreateDirectoryW(dir.wstring().c_str(), nullptr)) return dir.string();
        if (GetLastError() != ERROR_ALREADY_EXISTS) return "";
    }
    return "";
}

}  // namespace platform
