#pragma once
// A sample directory below a scratch include root, and the catalogue's error lines.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "catalogues/sample_catalogue.h"
#include "host/log_interface.h"
#include "test_support.h"

namespace testing_support {

class CatalogueFile : public ::testing::Test {
protected:
    void SetUp() override {
        dir = base.path() + "/RuvoManager/inc/sample/";
        std::filesystem::create_directories(dir);
        log_interface::setEcho(false);
        log_interface::takeRecords();
    }
    void TearDown() override { log_interface::setEcho(true); }
    void write(const std::string& name, const std::string& text) { std::ofstream(dir + name, std::ios::binary) << text; }
    std::string errors() {
        std::string all;
        for (const auto& r : log_interface::takeRecords()) {
            if (r.level == log_interface::Level::Error) all += r.text + "\n";
        }
        return all;
    }
    std::vector<ruvo::SampleRecord> samplesOf(ruvo::SampleCatalogue& c, const std::string& cls) {
        const auto snap = c.snapshot();
        const auto it = snap.find(cls);
        return it == snap.end() ? std::vector<ruvo::SampleRecord>() : it->second.samples;
    }
    TempDir base;
    std::string dir;
};

}  // namespace testing_support
