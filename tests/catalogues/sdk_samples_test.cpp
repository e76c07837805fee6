// The three sample calls on a catalogue written before the first use in this process.

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "RuvoManager/ruvo_sdk.h"
#include "test_support.h"

namespace fs = std::filesystem;

namespace {

// Written in file order unlike name order, with priorities unlike either.
const char* const kIndex = R"({"processes": [
    {"name": "Zeta", "priority": 1, "samples": [
        {"name": "z1", "file": "z1.cpp", "desc": "first z"},
        {"name": "z2", "file": "z2.cpp", "desc": "second z"},
        {"name": "z3", "file": "z3.cpp"}]},
    {"name": "Alpha", "priority": 9, "samples": [{"name": "a1", "file": "a1.cpp", "desc": "only a"}]},
    {"name": "Mid", "samples": []}]})";

testing_support::TempDir* g_install = nullptr;

class CatalogueInstall : public ::testing::Environment {
public:
    void SetUp() override {
        g_install = new testing_support::TempDir;
        const std::string dir = g_install->path() + "/RuvoManager/inc/sample/";
        fs::create_directories(dir);
        std::ofstream(dir + "sample.json", std::ios::binary) << kIndex;
        for (const char* f : {"z1", "z2", "z3", "a1"}) std::ofstream(dir + f + ".cpp", std::ios::binary) << "// " << f << "\n";
        ruvo_sdk::initRuvo(g_install->path().c_str());
        int first = 0;  // the first use, before any test moves the project path
        ruvo_sdk::getSamplesClassCount(&first);
    }
    void TearDown() override { delete g_install; }
};
const auto* const kInstall = ::testing::AddGlobalTestEnvironment(new CatalogueInstall);

std::vector<std::string> classNames() {
    int n = 0;
    EXPECT_EQ(ruvo_sdk::getSamplesClassCount(&n), 0);
    std::vector<char*> names(static_cast<size_t>(n));
    std::vector<int> priorities(names.size()), counts(names.size());
    EXPECT_EQ(ruvo_sdk::getSamplesClass(names.data(), priorities.data(), counts.data(), n), 0);
    return std::vector<std::string>(names.begin(), names.end());
}

TEST(SampleCalls, ClassesComeInNameOrderWithPrioritiesAndCounts) {
    int n = 0;
    ASSERT_EQ(ruvo_sdk::getSamplesClassCount(&n), 0);
    ASSERT_GE(n, 3);
    char* names[8] = {};
    int priorities[8], counts[8];
    std::fill(std::begin(priorities), std::end(priorities), 42);
    ASSERT_EQ(ruvo_sdk::getSamplesClass(names, priorities, counts, 3), 0);
    EXPECT_STREQ(names[0], "Alpha");
    EXPECT_STREQ(names[1], "Mid");
    EXPECT_STREQ(names[2], "Zeta");
    EXPECT_EQ(priorities[0], 9);
    EXPECT_EQ(priorities[1], -1);
    EXPECT_EQ(priorities[2], 1) << "priorities are reported, not used to sort";
    EXPECT_EQ(counts[0], 1);
    EXPECT_EQ(counts[1], 0);
    EXPECT_EQ(counts[2], 3);
    // The names point into the catalogue: the same pointers on a second call.
    char* again[1] = {};
    ASSERT_EQ(ruvo_sdk::getSamplesClass(again, priorities, counts, 1), 0);
    EXPECT_EQ(again[0], names[0]);
    // Capacity stops the writing.
    std::fill(std::begin(priorities), std::end(priorities), 42);
    ASSERT_EQ(ruvo_sdk::getSamplesClass(names, priorities, counts, 1), 0);
    EXPECT_EQ(priorities[1], 42);
    priorities[0] = 42;
    ASSERT_EQ(ruvo_sdk::getSamplesClass(names, priorities, counts, 0), 0);
    EXPECT_EQ(priorities[0], 42);
    EXPECT_EQ(ruvo_sdk::getSamplesClass(nullptr, priorities, counts, 1), -1);
    EXPECT_EQ(ruvo_sdk::getSamplesClassCount(nullptr), 0);
}

TEST(SampleCalls, SamplesInFileOrderZeroedUpToCapacity) {
    sample_s out[5];
    std::memset(out, 0xAB, sizeof out);
    ASSERT_EQ(ruvo_sdk::getSample("Zeta", out, 4), 0);
    EXPECT_STREQ(out[0].name, "z1");
    EXPECT_STREQ(out[0].desc, "first z");
    EXPECT_STREQ(out[0].code, "// z1\n");
    EXPECT_STREQ(out[1].name, "z2");
    EXPECT_STREQ(out[2].name, "z3");
    EXPECT_STREQ(out[2].desc, "");
    EXPECT_EQ(out[3].name, nullptr) << "records beyond the class are zeroed";
    EXPECT_EQ(out[3].code, nullptr);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(&out[4])[0], 0xAB) << "nothing beyond capacity";

    std::memset(out, 0xAB, sizeof out);
    ASSERT_EQ(ruvo_sdk::getSample("Zeta", out, 2), 0);
    EXPECT_STREQ(out[1].name, "z2");
    EXPECT_EQ(reinterpret_cast<unsigned char*>(&out[2])[0], 0xAB);
    std::memset(out, 0xAB, sizeof out);
    ASSERT_EQ(ruvo_sdk::getSample("Zeta", out, 0), 0);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(&out[0])[0], 0xAB) << "capacity 0 writes nothing";
    EXPECT_EQ(ruvo_sdk::getSample(nullptr, out, 1), -1);
    EXPECT_EQ(ruvo_sdk::getSample("Zeta", nullptr, 1), -1);
}

// Kept: the lookup inserts, so an unknown class name appears in the list afterwards.
TEST(SampleCallsKept, UnknownClassIsCreatedEmpty) {
    int before = 0;
    ruvo_sdk::getSamplesClassCount(&before);
    sample_s out[2];
    std::memset(out, 0xAB, sizeof out);
    ASSERT_EQ(ruvo_sdk::getSample("Beta", out, 2), 0);
    EXPECT_EQ(out[0].name, nullptr);
    EXPECT_EQ(out[1].desc, nullptr);
    int after = 0;
    ruvo_sdk::getSamplesClassCount(&after);
    EXPECT_EQ(after, before + 1);
    const auto names = classNames();
    EXPECT_NE(std::find(names.begin(), names.end(), "Beta"), names.end());
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
}

// Kept: read once; a later project path or a changed file does not refresh it.
TEST(SampleCallsKept, ReadOnceNeverRefreshed) {
    int n = 0;
    ruvo_sdk::getSamplesClassCount(&n);
    testing_support::TempDir other;
    ruvo_sdk::initRuvo(other.path().c_str());
    std::ofstream(g_install->path() + "/RuvoManager/inc/sample/sample.json") << R"({"processes": []})";
    int again = 0;
    ruvo_sdk::getSamplesClassCount(&again);
    EXPECT_EQ(again, n);
    sample_s out[1];
    ruvo_sdk::getSample("Alpha", out, 1);
    EXPECT_STREQ(out[0].name, "a1");
    ruvo_sdk::initRuvo(g_install->path().c_str());
    std::ofstream(g_install->path() + "/RuvoManager/inc/sample/sample.json") << kIndex;
}

}  // namespace
