// The catalogue file under hostile input: each bad entry is logged and left out, the rest loads,
// and nothing is read outside the sample directory.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "catalogues/catalogue_fixture.h"
#include "catalogues/sample_catalogue.h"
#include "host/log_interface.h"
#include "test_support.h"

namespace fs = std::filesystem;
using ruvo::SampleCatalogue;
using testing_support::CatalogueFile;
using testing_support::TempDir;

namespace {

TEST_F(CatalogueFile, ReadsClassesSamplesAndTheirFiles) {
    write("a.cpp", "clog.info(\"a\");\n");
    write("b.cpp", "");
    write("sample.json", R"({"processes": [
        {"name": "CAN", "priority": 7, "samples": [
            {"name": "a", "file": "a.cpp", "desc": "first"},
            {"name": "b", "file": "b.cpp"}]},
        {"name": "Empty"}]})");
    SampleCatalogue c(base.path());
    EXPECT_EQ(errors(), "");
    const auto snap = c.snapshot();
    ASSERT_EQ(snap.size(), 2u);
    EXPECT_EQ(snap.at("CAN").priority, 7);
    EXPECT_EQ(snap.at("Empty").priority, -1) << "no priority keeps -1";
    EXPECT_TRUE(snap.at("Empty").samples.empty());
    const auto& s = snap.at("CAN").samples;
    ASSERT_EQ(s.size(), 2u);
    EXPECT_EQ(s[0].name, "a");
    EXPECT_EQ(s[0].file, "a.cpp");
    EXPECT_EQ(s[0].desc, "first");
    EXPECT_EQ(s[0].code, "clog.info(\"a\");\n");
    EXPECT_EQ(s[1].desc, "") << "desc is optional";
    EXPECT_EQ(s[1].code, "");
    ruvo::SampleRecord found;
    EXPECT_TRUE(c.find("b", &found));
    EXPECT_EQ(found.file, "b.cpp");
    EXPECT_FALSE(c.find("nothing", &found));
}

TEST_F(CatalogueFile, MissingFileOrProcessesGivesAnEmptyCatalogueQuietly) {
    EXPECT_EQ(SampleCatalogue(base.path()).classCount(), 0);
    EXPECT_EQ(SampleCatalogue(base.path() + "/nowhere").classCount(), 0);
    write("sample.json", R"({"other": 1})");
    EXPECT_EQ(SampleCatalogue(base.path()).classCount(), 0);
    EXPECT_EQ(errors(), "");
}

TEST_F(CatalogueFile, ParseErrorsAndWrongShapesAreLoggedNotFatal) {
    for (const char* text : {"{\"processes\": [", "", "\x01\xff garbage", "[1,2,3]", "null"}) {
        write("sample.json", text);
        EXPECT_EQ(SampleCatalogue(base.path()).classCount(), 0) << text;
    }
    write("sample.json", "{\"processes\": [");
    SampleCatalogue(base.path()).classCount();
    EXPECT_NE(errors().find("parse sample.json error:"), std::string::npos);

    write("sample.json", R"({"processes": {"name": "x"}})");
    EXPECT_EQ(SampleCatalogue(base.path()).classCount(), 0);
    EXPECT_NE(errors().find("\"processes\" is not an array"), std::string::npos);
}

TEST_F(CatalogueFile, EntriesOfWrongTypeAreLeftOutAndTheRestLoads) {
    write("ok.cpp", "ok\n");
    write("sample.json", R"({"processes": [
        5, "text", {"priority": 1}, {"name": 12},
        {"name": "Kept", "priority": "high", "samples": [
            7, {"name": "noFile"}, {"file": "ok.cpp"}, {"name": 3, "file": "ok.cpp"},
            {"name": "badFile", "file": 9}, {"name": "badDesc", "file": "ok.cpp", "desc": 4},
            {"name": "ok", "file": "ok.cpp", "desc": "fine"}]},
        {"name": "NotArray", "priority": 1e300, "samples": {"name": "x"}},
        {"name": "Low", "priority": -1e300}]})");
    SampleCatalogue c(base.path());
    const auto snap = c.snapshot();
    ASSERT_EQ(snap.size(), 3u);
    EXPECT_EQ(snap.at("Kept").priority, -1) << "a priority that is no number is ignored";
    EXPECT_EQ(snap.at("NotArray").priority, INT32_MAX) << "a huge priority is clamped, not undefined";
    EXPECT_EQ(snap.at("Low").priority, INT32_MIN);
    EXPECT_TRUE(snap.at("NotArray").samples.empty());
    const auto& s = snap.at("Kept").samples;
    ASSERT_EQ(s.size(), 2u);
    EXPECT_EQ(s[0].name, "badDesc");
    EXPECT_EQ(s[0].desc, "");
    EXPECT_EQ(s[1].name, "ok");
    const std::string log = errors();
    EXPECT_NE(log.find("process 0 has no \"name\" string"), std::string::npos) << log;
    EXPECT_NE(log.find("sample 1 of Kept lacks a \"name\" or \"file\" string"), std::string::npos) << log;
    EXPECT_NE(log.find("\"samples\" of NotArray is not an array"), std::string::npos) << log;
}

TEST_F(CatalogueFile, HugeFilesAreRefused) {
    write("big.cpp", std::string(SampleCatalogue::kMaxSampleBytes + 1, 'x'));
    write("edge.cpp", std::string(SampleCatalogue::kMaxSampleBytes, 'y'));
    write("sample.json", R"({"processes": [{"name": "P", "samples": [
        {"name": "big", "file": "big.cpp"}, {"name": "edge", "file": "edge.cpp"}]}]})");
    {
        SampleCatalogue c(base.path());
        const auto s = samplesOf(c, "P");
        ASSERT_EQ(s.size(), 1u);
        EXPECT_EQ(s[0].name, "edge");
        EXPECT_EQ(s[0].code.size(), SampleCatalogue::kMaxSampleBytes);
        EXPECT_NE(errors().find("big.cpp larger than"), std::string::npos);
    }
    std::string huge = R"({"processes": [{"name": ")" + std::string(SampleCatalogue::kMaxIndexBytes, 'n') + "\"}]}";
    write("sample.json", huge);
    EXPECT_EQ(SampleCatalogue(base.path()).classCount(), 0);
    EXPECT_NE(errors().find("sample.json larger than"), std::string::npos);
    // Deep nesting is a parse error of the library's own, not a stack overflow.
    write("sample.json", std::string(100000, '[') + std::string(100000, ']'));
    EXPECT_EQ(SampleCatalogue(base.path()).classCount(), 0);
}

}  // namespace
