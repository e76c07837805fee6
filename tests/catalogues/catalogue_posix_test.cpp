// The catalogue next to links that lead out of the sample directory: POSIX only.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "catalogues/catalogue_fixture.h"
#include "catalogues/sample_catalogue.h"
#include "test_support.h"

namespace fs = std::filesystem;
using ruvo::SampleCatalogue;
using testing_support::CatalogueFile;

namespace {

TEST_F(CatalogueFile, FileNamesCannotLeadOutOfTheSampleDirectory) {
    std::ofstream(base.path() + "/RuvoManager/inc/secret.txt") << "secret";
    std::ofstream(base.path() + "/outside.txt") << "secret";
    fs::create_directories(dir + "sub");
    write("sub/inner.cpp", "inner");
    fs::create_symlink(base.path() + "/outside.txt", dir + "link.cpp");
    fs::create_symlink("/dev/zero", dir + "zero.cpp");
    write("ok.cpp", "ok");
    write("sample.json", R"({"processes": [{"name": "P", "samples": [
        {"name": "up", "file": "../secret.txt"},
        {"name": "abs", "file": "/etc/passwd"},
        {"name": "sub", "file": "sub/inner.cpp"},
        {"name": "back", "file": "..\\secret.txt"},
        {"name": "dotdot", "file": ".."},
        {"name": "dot", "file": "."},
        {"name": "empty", "file": ""},
        {"name": "ctl", "file": "ok.cpp\n"},
        {"name": "link", "file": "link.cpp"},
        {"name": "zero", "file": "zero.cpp"},
        {"name": "dir", "file": "sub"},
        {"name": "missing", "file": "missing.cpp"},
        {"name": "ok", "file": "ok.cpp"}]}]})");
    SampleCatalogue c(base.path());
    const auto s = samplesOf(c, "P");
    ASSERT_EQ(s.size(), 1u);
    EXPECT_EQ(s[0].name, "ok");
    const std::string log = errors();
    EXPECT_NE(log.find("file \"../secret.txt\" is not a plain file name"), std::string::npos) << log;
    EXPECT_NE(log.find("link.cpp is missing or lies outside"), std::string::npos) << log;
    EXPECT_NE(log.find("zero.cpp is missing or lies outside"), std::string::npos) << log;
}

}  // namespace
