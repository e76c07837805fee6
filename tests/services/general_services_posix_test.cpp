// Seed-to-key libraries next to a link that leads out of the project: POSIX only.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"
#include "test_support.h"

using testing_support::TempDir;

namespace {

std::vector<log_interface::Record> linesOf(const std::function<void()>& action) {
    log_interface::takeRecords();
    action();
    return log_interface::takeRecords();
}

}  // namespace

TEST(SoLibrary, LoadsOnlyFromTheProject) {
    TempDir project;
    TempDir elsewhere;
    std::filesystem::create_directories(project.file("keys"));
    std::filesystem::copy_file(SEED_TO_KEY_FIXTURE, project.file("keys/seedkey.so"));
    std::filesystem::copy_file(SEED_TO_KEY_FIXTURE, elsewhere.file("seedkey.so"));
    std::filesystem::create_symlink(elsewhere.file("seedkey.so"), project.file("link.so"));
    ruvo_sdk::initRuvo(project.path().c_str());
    const unsigned char seed[] = {0x10, 0x20};
    unsigned char key[8] = {0};
    u16 kylen = 0;

    EXPECT_EQ(g_com.run_so_library(nullptr, "seed_to_key", seed, 2, key, &kylen, nullptr), -1);
    EXPECT_EQ(g_com.run_so_library("keys/seedkey.so", nullptr, seed, 2, key, &kylen, nullptr), -1);

    EXPECT_EQ(g_com.run_so_library("keys/seedkey.so", "seed_to_key", seed, 2, key, &kylen, nullptr), 0)
        << "a relative name is a file of the project";
    EXPECT_EQ(kylen, 2);
    EXPECT_EQ(key[0], 0x20 ^ 0x5A);
    const std::string absolute = project.file("keys/seedkey.so");
    EXPECT_EQ(g_com.run_so_library(absolute.c_str(), "seed_to_key", seed, 2, key, &kylen, nullptr), 0);

    const std::string outside = elsewhere.file("seedkey.so");
    const std::string climbing = "keys/../../" + std::filesystem::path(elsewhere.path()).filename().string() +
                                 "/seedkey.so";
    for (const std::string& refused : {outside, climbing, std::string("link.so"), std::string("libc.so.6"),
                                       std::string(""), std::string(".")}) {
        kylen = 0;
        const auto lines = linesOf([&] {
            EXPECT_EQ(g_com.run_so_library(refused.c_str(), "seed_to_key", seed, 2, key, &kylen, nullptr), 1)
                << refused;
        });
        EXPECT_EQ(kylen, 0) << refused << " was not run";
        if (refused != "libc.so.6") {
            ASSERT_EQ(lines.size(), 1u) << refused;
            EXPECT_NE(lines[0].text.find("runVciSoLibrary: refused"), std::string::npos) << lines[0].text;
        }
    }
    // The vci table runs the same service.
    const VciFunsImp vciController;
    const _KelnVci& vci = vciController.getKelnVci();
    EXPECT_EQ(vci.run_so_library("keys/seedkey.so", "seed_to_key", seed, 2, key, &kylen, nullptr), 0);
}
