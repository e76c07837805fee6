// Writing generated files where links, a full disk and read-only directories stand in the way:
// POSIX only.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <map>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "generator/CppCodeGenerator.h"
#include "generator/realistic_applet.h"
#include "host/log_interface.h"
#include "model/MpRuvo.h"
#include "posix_test_support.h"
#include "test_support.h"
#include "writers_fixture.h"

using testing_support::TempDir;
using testing_support::inChild;
using testing_support::modeOf;
using testing_support::namesIn;
using testing_support::slurp;
namespace fs = std::filesystem;

using namespace writers_fixture;

TEST(WriteContainment, LinksInTheCodeDirectoryAreReplacedOrRemovedNeverFollowed) {
    TempDir dir, outside;
    for (const char* victim : {"main.cpp", "helper.cpp", "old.cpp", "singleapp.cpp", "resource.h"}) {
        std::ofstream(outside.file(victim)) << "precious " << victim;
        ::chmod(outside.file(victim).c_str(), 0600);
    }
    fs::create_directory(outside.file("stale.h"));
    std::ofstream(outside.file("stale.h/inside")) << "precious";
    const auto outsideBefore = snapshot(outside.path());
    // Links named like files about to be written, like stale sources, and dangling ones.
    for (const char* name : {"main.cpp", "helper.cpp", "old.cpp", "singleapp.cpp", "resource.h", "stale.h"}) {
        fs::create_symlink(outside.file(name), dir.file(name));
    }
    fs::create_symlink(outside.file("nothing.cpp"), dir.file("dangling.cpp"));
    fs::create_symlink(outside.file("created.cpp"), dir.file("global_define.h"));

    auto a = appletIn(dir);
    a->addMpFunction(a->getOrCreatMainRunFun());
    a->addMpFunction(selfDefined(*a, "helper", "return;"));
    ASSERT_TRUE(a->generateSingleAndMultiCodeFiles(""));

    EXPECT_EQ(snapshot(outside.path()), outsideBefore) << "nothing outside is written or deleted";
    for (const auto& e : fs::directory_iterator(dir.path())) {
        EXPECT_FALSE(e.is_symlink()) << e.path() << " should be replaced or removed";
    }
    EXPECT_EQ(filesIn(dir.path()), (std::vector<std::string>{"helper.cpp", "helper.h", "main.cpp",
                                                              "main.h", "resource.h", "singleapp.cpp"}));
}

TEST(WriteContainment, ACodeDirectoryThatIsALinkIsRefused) {
    TempDir root, outside;
    std::ofstream(outside.file("old.cpp")) << "precious";
    fs::create_symlink(outside.path(), root.file("app_code"));
    const auto before = snapshot(outside.path());
    MpRuvo a;
    a.setType(AT_TOOL);
    a.setMpName("app");
    a.setCodePath(root.file("app_code/"));
    a.addMpFunction(a.getOrCreatMainRunFun());
    log_interface::takeRecords();
    EXPECT_FALSE(a.generateSingleCodeFile(""));
    EXPECT_NE(errorLines().find("refusing to write into " + root.file("app_code/") +
                                ": it is a symbolic link"),
              std::string::npos);
    EXPECT_FALSE(a.generateCodeFiles(""));
    // Also as the explicit target, and for the resource header beside the code.
    TempDir real;
    a.setCodePath(real.path() + "/");
    EXPECT_FALSE(a.generateCodeFiles(root.file("app_code/")));
    a.setCodePath(root.file("app_code/"));
    EXPECT_FALSE(a.generateSingleCodeFile(real.path() + "/"));
    // The config file is not saved through it either.
    log_interface::takeRecords();
    EXPECT_FALSE(a.serialize(""));
    EXPECT_NE(errorLines().find("serialize(): refusing to write into " + root.file("app_code/")),
              std::string::npos);
    EXPECT_EQ(snapshot(outside.path()), before);
    EXPECT_TRUE(fs::is_empty(real.path()));
}

// The new set is on the disk before any old file is replaced or deleted.
TEST(WriteContainment, AFailedGenerationKeepsTheEarlierSetWhole) {
    TempDir dir;
    auto a = appletIn(dir);
    testing_support::buildRealisticApplet(*a);
    std::ofstream(dir.file("stale.cpp")) << "from an even earlier generation";
    ASSERT_TRUE(a->generateSingleAndMultiCodeFiles(""));
    std::ofstream(dir.file("stale.cpp")) << "from an even earlier generation";
    const auto before = snapshot(dir.path());
    // The new set holds one file far larger than the others.
    a->addMpFunction(selfDefined(*a, "huge", std::string(200000, ' ') + "return;"));

    // A full disk, simulated by a file size limit in a child.
    EXPECT_EQ(inChild([&] {
                  ::signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{100000, 100000};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  log_interface::takeRecords();
                  if (a->generateSingleAndMultiCodeFiles("")) return 1;
                  const std::string lines = errorLines();
                  return lines.find("File too large; no file was changed") != std::string::npos ? 0 : 2;
              }),
              0);
    EXPECT_EQ(snapshot(dir.path()), before);

    // A read-only directory; root is made nobody first, so the permissions really hold.
    ::chmod(dir.path().c_str(), 0555);
    EXPECT_EQ(inChild([&] {
                  if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) return 3;
                  return a->generateCodeFiles("") ? 1 : 0;
              }),
              0);
    ::chmod(dir.path().c_str(), 0700);
    EXPECT_EQ(snapshot(dir.path()), before);

    ASSERT_TRUE(a->generateSingleAndMultiCodeFiles(""));
    EXPECT_TRUE(fs::exists(dir.file("huge.cpp")));
    EXPECT_FALSE(fs::exists(dir.file("stale.cpp")));
}
