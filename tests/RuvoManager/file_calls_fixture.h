#pragma once
// An applet "gen" of a fresh project, made the current directory for the generation calls.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "RuvoManager/ruvo_sdk.h"
#include "test_support.h"

namespace testing_support {

class FileCalls : public ::testing::Test {
protected:
    void SetUp() override {
        previous = std::filesystem::current_path();
        std::filesystem::current_path(dir.path());  // the include root hangs below the current directory
        ruvo_sdk::initRuvo(dir.path().c_str());
        ASSERT_EQ(ruvo_sdk::createRuvo("gen", AT_TOOL), 0);
    }
    void TearDown() override {
        ruvo_sdk::destroyRuvo("gen");
        std::filesystem::current_path(previous);
    }
    void includeFile(const std::string& name, const std::string& text) {
        const std::string inc = dir.path() + "/Ruvo/KELN_Ruvo_Include/RuvoManager/inc/";
        std::filesystem::create_directories(inc);
        std::ofstream(inc + name, std::ios::binary) << text;
    }
    TempDir dir;
    std::filesystem::path previous;
};

}  // namespace testing_support
