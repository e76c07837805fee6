// Saves that keep file modes, and fail whole on a full disk or a read-only directory: POSIX only.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "RuvoManager/file_calls_fixture.h"
#include "RuvoManager/ruvo_sdk.h"
#include "posix_test_support.h"
#include "test_support.h"

using testing_support::FileCalls;
using testing_support::inChild;
using testing_support::modeOf;
using testing_support::namesIn;
namespace fs = std::filesystem;

TEST_F(FileCalls, SavesKeepThePermissionsAndAFailedSaveIsMinusOneWithTheOldFilesWhole) {
    const std::string code = dir.file("gen_code");
    const std::string config = code + "/appletCfg.ruvo";
    ruvo_sdk::genDefaultMainFunction("gen");
    ASSERT_EQ(ruvo_sdk::serilize("gen", ""), 0);
    ::chmod(config.c_str(), 0600);
    ASSERT_EQ(ruvo_sdk::serilize("gen", ""), 0);
    EXPECT_EQ(modeOf(config), 0600u);
    ASSERT_EQ(ruvo_sdk::generateSingleAndMultiCodeFiles("gen", ""), 0);
    ::chmod((code + "/main.cpp").c_str(), 0640);
    ASSERT_EQ(ruvo_sdk::generateSingleAndMultiCodeFiles("gen", ""), 0);
    EXPECT_EQ(modeOf(code + "/main.cpp"), 0640u);

    const std::string configBefore = testing_support::slurp(config);
    const std::string mainBefore = testing_support::slurp(code + "/main.cpp");
    const auto namesBefore = namesIn(code);
    const char body[] = "int spacious = 0;";
    std::string big;
    for (int i = 0; i < 2000; ++i) big += body;
    ruvo_sdk::setRuvoFuncCodeByName("gen", "mainRun", big.c_str(), static_cast<unsigned>(big.size()));

    // A full disk, simulated by a file size limit in a child.
    EXPECT_EQ(inChild([] {
                  ::signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{16384, 16384};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  return ruvo_sdk::serilize("gen", "") == -1 &&
                                 ruvo_sdk::generateSingleAndMultiCodeFiles("gen", "") == -1
                             ? 0 : 1;
              }),
              0);
    // A read-only directory; root is made nobody first, so the permissions really hold.
    ::chmod(dir.path().c_str(), 0755);
    ::chmod(code.c_str(), 0555);
    EXPECT_EQ(inChild([] {
                  if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) return 2;
                  return ruvo_sdk::serilize("gen", "") == -1 &&
                                 ruvo_sdk::generateCodeFiles("gen", "") == -1
                             ? 0 : 1;
              }),
              0);
    ::chmod(code.c_str(), 0755);
    EXPECT_EQ(testing_support::slurp(config), configBefore);
    EXPECT_EQ(testing_support::slurp(code + "/main.cpp"), mainBefore);
    EXPECT_EQ(namesIn(code), namesBefore) << "no temporary file is left";

    // Kept: a target whose directory is missing writes nothing and still reports success.
    EXPECT_EQ(ruvo_sdk::serilize("gen", dir.file("no/such/x.ruvo").c_str()), 0);
    EXPECT_FALSE(fs::exists(dir.file("no")));
}
