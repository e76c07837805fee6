// The crash-safe writer: permissions, links, failures that keep the old file, leftovers. POSIX
// only: file modes, links and read-only directories checked in a child process.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "model/applet_fixture.h"
#include "model/text_file.h"
#include "posix_test_support.h"
#include "test_support.h"

using testing_support::TempDir;
using testing_support::inChild;
using testing_support::modeOf;
using testing_support::namesIn;
using testing_support::slurp;
using testing_support::spit;
namespace fs = std::filesystem;

namespace {

// In a child: as root, become nobody so that directory permissions hold.
bool dropRoot() {
    if (::geteuid() != 0) return true;
    return ::setgid(65534) == 0 && ::setuid(65534) == 0;
}

}  // namespace

TEST(TextFile, PermissionsOfTheOldFileAreKeptANewFileGetsTheDefault) {
    TempDir dir;
    const std::string path = dir.file("secret.ruvo");
    spit(path, "old");
    ::chmod(path.c_str(), 0600);
    std::string error;
    ASSERT_EQ(ruvo::writeFileAtomically(path, "new", error), ruvo::WriteResult::Written) << error;
    EXPECT_EQ(slurp(path), "new");
    EXPECT_EQ(modeOf(path), 0600u);
    ::chmod(path.c_str(), 0640);
    ASSERT_EQ(ruvo::writeFileAtomically(path, "newer", error), ruvo::WriteResult::Written);
    EXPECT_EQ(modeOf(path), 0640u);

    const mode_t mask = ::umask(022);
    ASSERT_EQ(ruvo::writeFileAtomically(dir.file("fresh"), "x", error), ruvo::WriteResult::Written);
    ::umask(mask);
    EXPECT_EQ(modeOf(dir.file("fresh")), 0644u);

    // Through the applet: a private config file stays private.
    auto applet = testing_support::toolApplet(dir.path());
    ASSERT_TRUE(applet->serialize(""));
    ::chmod(dir.file("appletCfg.ruvo").c_str(), 0600);
    ASSERT_TRUE(applet->serialize(""));
    EXPECT_EQ(modeOf(dir.file("appletCfg.ruvo")), 0600u);
}

TEST(TextFile, SetIdBitsOfTheOldFileAreNotCopied) {
    TempDir dir;
    const std::string path = dir.file("f");
    spit(path, "old");
    ::chmod(path.c_str(), 06755);
    std::string error;
    ASSERT_EQ(ruvo::writeFileAtomically(path, "new", error), ruvo::WriteResult::Written);
    EXPECT_EQ(modeOf(path), 0755u);
}

TEST(TextFile, ALinkAtThePathIsReplacedItsTargetUntouched) {
    TempDir dir, outside;
    const std::string victim = outside.file("victim");
    spit(victim, "precious");
    ::chmod(victim.c_str(), 0600);
    fs::create_symlink(victim, dir.file("main.cpp"));
    std::string error;
    ASSERT_EQ(ruvo::writeFileAtomically(dir.file("main.cpp"), "generated", error),
              ruvo::WriteResult::Written);
    EXPECT_EQ(slurp(victim), "precious");
    EXPECT_EQ(modeOf(victim), 0600u);
    EXPECT_FALSE(fs::is_symlink(dir.file("main.cpp")));
    EXPECT_EQ(slurp(dir.file("main.cpp")), "generated");
    EXPECT_NE(modeOf(dir.file("main.cpp")), 0600u) << "the link's target lends no permissions";

    // A dangling link is replaced the same way, nothing is created at its target.
    fs::create_symlink(outside.file("nothing"), dir.file("other.h"));
    ASSERT_EQ(ruvo::writeFileAtomically(dir.file("other.h"), "x", error), ruvo::WriteResult::Written);
    EXPECT_FALSE(fs::exists(outside.file("nothing")));
    EXPECT_EQ(namesIn(outside.path()), std::vector<std::string>{"victim"});
}

TEST(TextFile, FailuresKeepTheOldFileLeaveNoTemporaryAndSayWhy) {
    TempDir dir;
    const std::string path = dir.file("appletCfg.ruvo");
    spit(path, "old text");
    std::string error;

    // A full disk, simulated by a file size limit in a child: EFBIG at the write.
    const int full = inChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{4, 4};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        std::string e;
        const auto r = ruvo::writeFileAtomically(path, std::string(100000, 'n'), e);
        const bool named = e.find(path) != std::string::npos && e.find("too large") != std::string::npos;
        return r == ruvo::WriteResult::WriteFailed && named ? 0 : 1;
    });
    EXPECT_EQ(full, 0) << "a failed write is reported with the path and the system's reason";
    EXPECT_EQ(slurp(path), "old text");
    EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"appletCfg.ruvo"});

    // A read-only directory; root is made nobody first, so the permissions really hold.
    ::chmod(dir.path().c_str(), 0555);
    const int denied = inChild([&] {
        if (!dropRoot()) return 2;
        std::string e;
        const auto r = ruvo::writeFileAtomically(path, "new", e);
        return r == ruvo::WriteResult::WriteFailed && e.find("Permission denied") != std::string::npos
                   ? 0 : 1;
    });
    ::chmod(dir.path().c_str(), 0700);
    EXPECT_EQ(denied, 0);
    EXPECT_EQ(slurp(path), "old text");
    EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"appletCfg.ruvo"});

    // A directory in the way of the rename.
    fs::create_directories(dir.file("dir.ruvo/keep"));
    EXPECT_EQ(ruvo::writeFileAtomically(dir.file("dir.ruvo"), "x", error), ruvo::WriteResult::WriteFailed);
    EXPECT_NE(error.find("dir.ruvo"), std::string::npos) << error;
    EXPECT_TRUE(fs::is_directory(dir.file("dir.ruvo/keep")));

    // A path that names a directory is no file.
    EXPECT_EQ(ruvo::writeFileAtomically(dir.path() + "/", "x", error), ruvo::WriteResult::WriteFailed);
    EXPECT_EQ(namesIn(dir.path()), (std::vector<std::string>{"appletCfg.ruvo", "dir.ruvo"}));

    // A missing directory, or a file where the directory should be, cannot be opened at all.
    EXPECT_EQ(ruvo::writeFileAtomically(dir.file("no/such"), "x", error), ruvo::WriteResult::OpenFailed);
    EXPECT_EQ(ruvo::writeFileAtomically(path + "/x", "x", error), ruvo::WriteResult::OpenFailed);
    EXPECT_EQ(slurp(path), "old text");
}

TEST(TextFile, TheAppletSaveReportsAFullDiskAReadOnlyDirectoryOrADirectoryInTheWay) {
    TempDir dir;
    auto applet = testing_support::toolApplet(dir.path());
    ASSERT_TRUE(applet->serialize(""));
    const std::string before = slurp(dir.file("appletCfg.ruvo"));
    testing_support::populate(*applet, true);  // far longer than the size limit below
    ::chmod(dir.path().c_str(), 0555);
    EXPECT_EQ(inChild([&] { return dropRoot() && !applet->serialize("") ? 0 : 1; }), 0);
    ::chmod(dir.path().c_str(), 0700);
    EXPECT_EQ(inChild([&] {
                  ::signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{512, 512};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  return applet->serialize("") ? 1 : 0;
              }),
              0);
    EXPECT_EQ(slurp(dir.file("appletCfg.ruvo")), before);
    EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"appletCfg.ruvo"});

    // A directory in the way: the save fails rather than leave half a file.
    TempDir blocked;
    fs::create_directories(blocked.file("appletCfg.ruvo/keep"));
    EXPECT_FALSE(testing_support::toolApplet(blocked.path())->serialize(""));
    EXPECT_TRUE(fs::exists(blocked.file("appletCfg.ruvo/keep")));
}

TEST(TextFile, LeftoversOfKilledWritesGoOnceTheyAreOld) {
    TempDir dir;
    const std::string path = dir.file("a.ruvo");
    const std::string stale = path + ".tmp-0123456789abcdef";
    const std::string young = path + ".tmp-fedcba9876543210";
    const std::string foreign = path + ".tmp-notours";
    const std::string otherFile = dir.file("b.ruvo.tmp-0123456789abcdef");
    for (const auto& f : {stale, young, foreign, otherFile}) spit(f, "x");
    fs::create_symlink(dir.file("target"), path + ".tmp-00000000000000aa");
    const auto old = fs::file_time_type::clock::now() -
                     std::chrono::seconds(ruvo::kStaleTemporarySeconds + 60);
    for (const auto& f : {stale, foreign, otherFile}) fs::last_write_time(f, old);
    std::string error;
    ASSERT_EQ(ruvo::writeFileAtomically(path, "text", error), ruvo::WriteResult::Written);
    EXPECT_FALSE(fs::exists(stale));
    EXPECT_TRUE(fs::exists(young)) << "may be another process's write in flight";
    EXPECT_TRUE(fs::exists(foreign));
    EXPECT_TRUE(fs::exists(otherFile));
    EXPECT_TRUE(fs::is_symlink(path + ".tmp-00000000000000aa"));

    EXPECT_TRUE(ruvo::isTemporaryName("a.ruvo.tmp-0123456789abcdef", "a.ruvo"));
    EXPECT_FALSE(ruvo::isTemporaryName("a.ruvo.tmp-0123456789ABCDEF", "a.ruvo"));
    EXPECT_FALSE(ruvo::isTemporaryName("a.ruvo.tmp-0123456789abcde", "a.ruvo"));
    EXPECT_FALSE(ruvo::isTemporaryName("xa.ruvo.tmp-0123456789abcdef", "a.ruvo"));
}
