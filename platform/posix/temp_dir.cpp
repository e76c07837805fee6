#include "platform/temp_dir.h"

#include <stdlib.h>

#include <filesystem>
#include <system_error>

namespace platform {

std::string makeTempDirectory(const std::string& prefix) {
    std::error_code ec;
    const auto base = std::filesystem::temp_directory_path(ec);
    if (ec) return "";
    std::string name = (base / (prefix + "XXXXXX")).string();
    return ::mkdtemp(&name[0]) != nullptr ? name : "";  // mode 0700
}

}  // namespace platform
