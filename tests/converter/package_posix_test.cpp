// Packaging next to links that lead out of the target: POSIX only.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "convert_support.h"
#include "converter/package.h"

namespace {

namespace fs = std::filesystem;
using testing_support::slurp;
using testing_support::TempDir;
using convert_test::put;
using convert_test::snapshot;
using convert_test::requestFor;

TEST(Package, LinksAreNeverFollowedOutOfTheTarget) {
    TempDir dir;
    put(dir.file("App_code/main.cpp"), "go();\n");
    put(dir.file("elsewhere/victim.cpp"), "keep");
    fs::create_directories(dir.file("out"));
    fs::create_symlink(dir.file("elsewhere/victim.cpp"), dir.file("out/link.cpp"));
    conv::PackageResult result;
    ASSERT_EQ(conv::writeVciPackage(requestFor(dir), dir.file("out"), result), 0) << result.error;
    EXPECT_EQ(slurp(dir.file("elsewhere/victim.cpp")), "keep");
    EXPECT_TRUE(fs::is_symlink(dir.file("out/link.cpp")));

    // The applet's directory in the target as a link: refused, nothing written through it.
    fs::remove_all(dir.file("out/App"));
    fs::create_symlink(dir.file("elsewhere"), dir.file("out/App"));
    EXPECT_EQ(conv::writeVciPackage(requestFor(dir), dir.file("out"), result), -1);
    EXPECT_NE(result.error.find("is not a directory"), std::string::npos) << result.error;
    EXPECT_EQ(snapshot(dir.file("elsewhere")), (std::map<std::string, std::string>{{"victim.cpp", "keep"}}));
}

}  // namespace
