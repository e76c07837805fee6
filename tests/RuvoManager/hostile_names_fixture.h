#pragma once
// A fresh project below a scratch directory, and what a refusal logs or leaves outside it.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"
#include "test_support.h"

namespace testing_support {

class HostileNames : public ::testing::Test {
protected:
    void SetUp() override {
        project = dir.path() + "/project";
        std::filesystem::create_directories(project);
        ruvo_sdk::initRuvo(project.c_str());
        log_interface::takeRecords();
    }
    void TearDown() override {
        for (const auto& name : RuvoManager::getInstance().getAppletNameList()) {
            ruvo_sdk::destroyRuvo(name.c_str());
        }
    }
    // The one error line of the last call; fails the test unless there is exactly one.
    std::string onlyError() {
        std::string line;
        int errors = 0;
        for (const auto& r : log_interface::takeRecords()) {
            if (r.level == log_interface::Level::Error) {
                line = r.text;
                ++errors;
            }
        }
        EXPECT_EQ(errors, 1) << line;
        return line;
    }
    // Everything below the scratch directory except the project itself.
    std::vector<std::string> strayEntries() {
        std::vector<std::string> stray;
        for (const auto& e : std::filesystem::recursive_directory_iterator(dir.path())) {
            // Compared in the system's own spelling: names may be joined with '/' on Windows.
            const std::string p = e.path().lexically_normal().string();
            if (p.rfind(std::filesystem::path(project).lexically_normal().string(), 0) != 0) stray.push_back(p);
        }
        return stray;
    }
    TempDir dir;
    std::string project;
};

}  // namespace testing_support
