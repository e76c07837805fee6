#pragma once
// Shared by the converter tests: the system variables every case may use, golden comparison.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "converter/package.h"
#include "host/vars/system_variate.h"
#include "test_support.h"

namespace convert_test {

// One variable of each of the ten kinds.
inline void defineVariables() {
    variate_interface::ClearVariates();
    struct V {
        int32_t category;
        const char* ns;
        const char* name;
    };
    const V vars[] = {{1, "Engine", "rpm"},   {2, "Engine", "count"}, {3, "Big", "i64"},      {4, "Big", "u64"},
                      {5, "Engine", "speed"}, {6, "Text", "name"},    {7, "Bus", "bytes"},    {8, "Bus", "ints"},
                      {9, "Bus", "longs"},    {10, "Bus", "doubles"}, {5, "", "plain"}};
    for (const V& v : vars) {
        SystemVarDef def(v.category);
        std::strncpy(def.name, v.name, sizeof def.name - 1);
        std::strncpy(def.nameSpace, v.ns, sizeof def.nameSpace - 1);
        if (v.category >= 6) def.arraySize = 16;
        ASSERT_EQ(variate_interface::CreateVariate(def), VAR_OK) << v.name;
    }
}

inline bool updating() { return std::getenv("RUVO_UPDATE_GOLDEN") != nullptr; }

// Compares with the golden file, or rewrites it under RUVO_UPDATE_GOLDEN.
inline void expectGolden(const std::string& actual, const std::string& goldenPath) {
    if (updating()) std::ofstream(goldenPath, std::ios::binary) << actual;
    const std::string expected = testing_support::slurp(goldenPath);
    EXPECT_EQ(actual, expected) << "the converted text differs from " << goldenPath
                                << "; if the change is intended, regenerate with RUVO_UPDATE_GOLDEN=1 "
                                   "out/bin/converter_tests";
}

// A package request for the applet "App" below `dir`, with no templates.
inline conv::PackageRequest requestFor(const testing_support::TempDir& dir) {
    conv::PackageRequest r;
    r.appletName = "App";
    r.mainPort = "mainRun";
    r.codePath = dir.file("App_code");
    r.templateDir = dir.file("no_templates");
    return r;
}

// A file for the packaging tests, its directories made.
inline void put(const std::filesystem::path& p, const std::string& text) {
    std::filesystem::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << text;
}

// Every entry below `dir` with its content ("->target" for a link, "/" for a directory).
inline std::map<std::string, std::string> snapshot(const std::filesystem::path& dir) {
    std::map<std::string, std::string> all;
    namespace fs = std::filesystem;
    for (auto it = fs::recursive_directory_iterator(dir); it != fs::recursive_directory_iterator(); ++it) {
        const std::string rel = fs::relative(it->path(), dir).generic_string();
        if (it->is_symlink()) all[rel] = "->" + fs::read_symlink(it->path()).string();
        else if (it->is_directory()) all[rel] = "/";
        else all[rel] = testing_support::slurpText(it->path().string());
    }
    return all;
}

}  // namespace convert_test
