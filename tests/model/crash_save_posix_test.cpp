// A saving process killed at random points of 1,000 saves leaves the file whole: either the
// text of the last finished save or that of the save in flight, never a truncated or mixed one.
#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <random>

#include "model/applet_fixture.h"
#include "model/text_file.h"
#include "test_support.h"

using testing_support::slurp;
namespace fs = std::filesystem;

namespace {

constexpr int kSaves = 1000;

// On tmpfs when there is one: a flush there costs nothing, and a kill tests the rename, not
// the disk. Durability against power loss is the flush's job and cannot be tested here.
class ScratchDir {
public:
    ScratchDir() {
        std::error_code ec;
        const fs::path root = fs::is_directory("/dev/shm", ec) && ::access("/dev/shm", W_OK) == 0
                                  ? fs::path("/dev/shm")
                                  : fs::temp_directory_path();
        std::string tmpl = (root / "ruvo_crash_XXXXXX").string();
        path_ = ::mkdtemp(&tmpl[0]) ? tmpl : std::string();
    }
    ~ScratchDir() {
        std::error_code ec;
        fs::remove_all(path_, ec);
    }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// Alternately small and big, each recognisable as a whole by its number at both ends.
std::string numberedText(int i) {
    const std::string n = std::to_string(i);
    return "save " + n + "\n" + std::string((i & 1) ? 64 * 1024 : 64, static_cast<char>('a' + (i + 26) % 26)) +
           "end " + n + "\n";
}

std::vector<std::string> temporariesOf(const std::string& dir, const std::string& base) {
    std::vector<std::string> out;
    for (const auto& e : fs::directory_iterator(dir)) {
        const std::string name = e.path().filename().string();
        if (name != base) out.push_back(name);
    }
    return out;
}

// A later save may remove them; a young one could be another process's write in flight.
void ageLeftovers(const std::string& dir, const std::string& base) {
    const auto old = fs::file_time_type::clock::now() -
                     std::chrono::seconds(ruvo::kStaleTemporarySeconds + 60);
    for (const auto& name : temporariesOf(dir, base)) fs::last_write_time(dir + "/" + name, old);
}

// Runs `rounds` children that each call save(0..kSaves-1) and report every finished save on a
// pipe; each is killed after a random number of saves plus a random delay. After each kill the
// file must hold text(last finished) or text(last finished + 1).
void crashRounds(const std::string& dir, const std::string& base, int rounds, unsigned seed,
                 const std::function<bool(int)>& save,
                 const std::function<std::string(int)>& text) {
    const std::string file = dir + "/" + base;
    std::mt19937 random(seed);
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round));
        ageLeftovers(dir, base);
        int progress[2];
        ASSERT_EQ(::pipe(progress), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(progress[0]);
            for (int i = 0; i < kSaves; ++i) {
                if (!save(i)) ::_exit(3);
                if (::write(progress[1], &i, sizeof i) != sizeof i) ::_exit(4);
            }
            ::_exit(0);
        }
        ::close(progress[1]);
        const int target = std::uniform_int_distribution<int>(0, kSaves - 1)(random);
        const int delayMicros = std::uniform_int_distribution<int>(0, 400)(random);
        // A slow disk must not make the test slow: the kill comes after 300 ms at the latest.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
        int last = -1, value = 0;
        while (last < target && std::chrono::steady_clock::now() < deadline) {
            pollfd p{progress[0], POLLIN, 0};
            if (::poll(&p, 1, 10) <= 0) continue;
            if (::read(progress[0], &value, sizeof value) != sizeof value) break;
            last = value;
        }
        ::usleep(static_cast<useconds_t>(delayMicros));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        while (::read(progress[0], &value, sizeof value) == sizeof value) last = value;
        ::close(progress[0]);
        ASSERT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) != 0)
            << "a save failed in the child, exit " << WEXITSTATUS(status);

        const std::string now = slurp(file);
        const bool finished = now == text(last);
        const bool inFlight = last + 1 < kSaves && now == text(last + 1);
        EXPECT_TRUE(finished || inFlight)
            << "after save " << last << " the file holds " << now.size() << " bytes: "
            << now.substr(0, 40);
        // Only the temporary of the save in flight may remain.
        EXPECT_LE(temporariesOf(dir, base).size(), 1u);
        for (const auto& name : temporariesOf(dir, base)) {
            EXPECT_TRUE(ruvo::isTemporaryName(name, base)) << name;
        }
        if (::testing::Test::HasFailure()) return;
    }
    // The next save clears what the killed ones left.
    ageLeftovers(dir, base);
    ASSERT_TRUE(save(0));
    EXPECT_TRUE(temporariesOf(dir, base).empty());
    EXPECT_EQ(slurp(file), text(0));
}

}  // namespace

TEST(CrashSafeSaves, KilledWriterLeavesTheOldOrTheNewTextNeverAPart) {
    ScratchDir dir;
    ASSERT_FALSE(dir.path().empty());
    const std::string file = dir.path() + "/data.txt";
    std::string error;
    ASSERT_EQ(ruvo::writeFileAtomically(file, numberedText(-1), error), ruvo::WriteResult::Written);
    crashRounds(dir.path(), "data.txt", 10, 20240611u,
                [&](int i) {
                    std::string e;
                    return ruvo::writeFileAtomically(file, numberedText(i), e) ==
                           ruvo::WriteResult::Written;
                },
                numberedText);
}

TEST(CrashSafeSaves, KilledAppletSaveLeavesAWholeConfigFile) {
    ScratchDir dir;
    ASSERT_FALSE(dir.path().empty());
    auto small = testing_support::toolApplet(dir.path());
    auto big = testing_support::toolApplet(dir.path());
    testing_support::populate(*big, true);
    for (int i = 0; i < 20; ++i) {
        RuvoFunction f = big->createFunc("helper" + std::to_string(i), RFT_SELF_DEFINE,
                                         {"helper" + std::to_string(i), "s32 a"});
        f.setBodyCode(std::string(1000, 'x'));
        big->addMpFunction(f);
    }
    // The texts each save must leave, taken through the same path.
    ASSERT_TRUE(small->serialize(""));
    const std::string smallText = slurp(dir.path() + "/appletCfg.ruvo");
    ASSERT_TRUE(big->serialize(""));
    const std::string bigText = slurp(dir.path() + "/appletCfg.ruvo");
    ASSERT_GT(bigText.size(), 50 * smallText.size());
    const auto text = [&](int i) { return (i & 1) ? bigText : smallText; };
    crashRounds(dir.path(), "appletCfg.ruvo", 6, 7u,
                [&](int i) { return ((i & 1) ? big : small)->serialize(""); }, text);
}
