#pragma once
// Result of generation and input of conversion.

#include <string>
#include <vector>

#include "model/keln_types.h"

enum AppFileType : int32_t { APP_FILE_SOURCE = 1, APP_FILE_HEADER = 2 };

struct AppFile {
    std::string name;
    int type = APP_FILE_SOURCE;
    std::string content;
};

struct AppPacket {
    std::vector<std::string> lines;
    std::string text1;
    std::string text2;
    s32 status = 0;
    std::vector<AppFile> files;
};
