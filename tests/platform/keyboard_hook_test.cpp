// The process's keyboard hook chain fed by injected strokes, and the terminal key source on a
// pseudo-terminal, in this process and in a child that is ended by a signal.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/keyboard_hook.h"

extern char** environ;

using namespace platform;
using namespace std::chrono_literals;

namespace {

constexpr uint32_t kFlagUp = 0x80;  // LLKHF_UP

KeyStroke stroke(int virtualKey, bool ctrl = false, bool shift = false, bool alt = false) {
    KeyStroke s;
    s.virtualKey = virtualKey;
    s.ctrl = ctrl;
    s.shift = shift;
    s.alt = alt;
    return s;
}

// Removes the hook at the end of a test, whatever the test did with it.
struct InstalledHook {
    explicit InstalledHook(KeyHookProc proc) {
        unsigned long error = 0;
        handle = setKeyboardHook(proc, error);
        EXPECT_NE(handle, nullptr) << error;
    }
    ~InstalledHook() { removeKeyboardHook(handle); }
    KeyHookHandle handle = nullptr;
};

const KeyHookRecord& recordAt(intptr_t lParam) { return *reinterpret_cast<const KeyHookRecord*>(lParam); }

// What a hook saw of one event, with the modifiers as keyState told it inside the hook.
struct Seen {
    uintptr_t message;
    uint32_t vk;
    bool ctrl, shift, alt;
    bool operator==(const Seen& o) const {
        return message == o.message && vk == o.vk && ctrl == o.ctrl && shift == o.shift && alt == o.alt;
    }
};
std::ostream& operator<<(std::ostream& out, const Seen& s) {
    return out << "{msg 0x" << std::hex << s.message << " vk 0x" << s.vk << std::dec << (s.ctrl ? " ctrl" : "")
               << (s.shift ? " shift" : "") << (s.alt ? " alt" : "") << "}";
}

// Everything the recording hook saw; `pressed` keeps the key downs other than modifiers.
struct Recording {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Seen> all;
    std::vector<Seen> pressed;

    bool waitForPressed(size_t count) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, 5s, [&] { return pressed.size() >= count; });
    }
} g_recording;

intptr_t recordingHook(int code, uintptr_t wParam, intptr_t lParam) {
    const Seen seen{wParam, recordAt(lParam).vkCode, keyState(kVkControl) < 0, keyState(kVkShift) < 0,
                    keyState(kVkMenu) < 0};
    {
        std::lock_guard<std::mutex> lock(g_recording.mutex);
        g_recording.all.push_back(seen);
        const bool modifier = seen.vk == kVkControl || seen.vk == kVkShift || seen.vk == kVkMenu;
        if (!modifier && (wParam == kWmKeyDown || wParam == kWmSysKeyDown)) g_recording.pressed.push_back(seen);
    }
    g_recording.changed.notify_all();
    return callNextKeyboardHook(code, wParam, lParam);
}

// ---- Chain order -----------------------------------------------------------------------------

std::string g_order;
std::vector<intptr_t> g_results;

intptr_t oldestHook(int, uintptr_t, intptr_t) {
    g_order += 'A';
    return 7;
}
intptr_t middleHook(int code, uintptr_t wParam, intptr_t lParam) {
    g_order += 'B';
    if (wParam == kWmKeyUp) return 1;  // swallows key ups: the oldest hook never sees them
    return callNextKeyboardHook(code, wParam, lParam);
}
intptr_t newestHook(int code, uintptr_t wParam, intptr_t lParam) {
    g_order += 'C';
    g_results.push_back(callNextKeyboardHook(code, wParam, lParam));
    return g_results.back();
}

TEST(KeyboardHook, NewestHookRunsFirstAndEachHandsOnOnlyThroughCallNext) {
    unsigned long error = 0;
    EXPECT_EQ(setKeyboardHook(nullptr, error), nullptr);
    EXPECT_EQ(error, static_cast<unsigned long>(EINVAL));
    EXPECT_EQ(callNextKeyboardHook(0, kWmKeyDown, 0), 0) << "outside a delivery there is no next hook";

    g_order.clear();
    g_results.clear();
    {
        InstalledHook a(oldestHook), b(middleHook), c(newestHook);
        injectKeyStroke(stroke('Q'));
        EXPECT_EQ(g_order, "CBACB");
        EXPECT_EQ(g_results, (std::vector<intptr_t>{7, 1}));

        EXPECT_TRUE(removeKeyboardHook(b.handle));
        EXPECT_FALSE(removeKeyboardHook(b.handle)) << "removed twice";
        int unknown = 0;
        EXPECT_FALSE(removeKeyboardHook(&unknown));
        g_order.clear();
        injectKeyStroke(stroke('Q'));
        EXPECT_EQ(g_order, "CACA");
    }
    g_order.clear();
    injectKeyStroke(stroke('Q'));
    EXPECT_EQ(g_order, "") << "every hook was removed";
}

// ---- Removal during delivery -----------------------------------------------------------------

KeyHookHandle g_selfRemover = nullptr;
KeyHookHandle g_skipped = nullptr;

intptr_t lastInChainHook(int, uintptr_t, intptr_t) {
    g_order += 'Z';
    return 0;
}
intptr_t skippedHook(int code, uintptr_t wParam, intptr_t lParam) {
    g_order += 'Y';
    return callNextKeyboardHook(code, wParam, lParam);
}
intptr_t selfRemovingHook(int code, uintptr_t wParam, intptr_t lParam) {
    g_order += 'X';
    EXPECT_TRUE(removeKeyboardHook(g_skipped));
    EXPECT_TRUE(removeKeyboardHook(g_selfRemover)) << "a hook removes itself while it runs";
    return callNextKeyboardHook(code, wParam, lParam);
}

std::atomic<bool> g_entered{false};
std::atomic<bool> g_release{false};
std::atomic<int> g_blockingCalls{0};

intptr_t blockingHook(int code, uintptr_t wParam, intptr_t lParam) {
    ++g_blockingCalls;
    g_entered = true;
    for (int i = 0; i < 500 && !g_release; ++i) std::this_thread::sleep_for(10ms);
    return callNextKeyboardHook(code, wParam, lParam);
}

TEST(KeyboardHook, RemovalDuringDeliverySkipsTheRemovedAndWaitsForCallsOnOtherThreads) {
    g_order.clear();
    InstalledHook z(lastInChainHook), y(skippedHook), x(selfRemovingHook);
    g_skipped = y.handle;
    g_selfRemover = x.handle;
    injectKeyStroke(stroke('Q'));
    EXPECT_EQ(g_order, "XZZ") << "the key down goes past the removed hook; the key up sees only Z";

    // A hook running on another thread: removal returns only once that call has ended.
    g_entered = false;
    g_release = false;
    g_blockingCalls = 0;
    InstalledHook blocking(blockingHook);
    std::thread typist([] { injectKeyStroke(stroke('W')); });
    while (!g_entered) std::this_thread::sleep_for(1ms);
    auto removal = std::async(std::launch::async, [&] { return removeKeyboardHook(blocking.handle); });
    EXPECT_EQ(removal.wait_for(50ms), std::future_status::timeout) << "removal returned during a call";
    g_release = true;
    EXPECT_TRUE(removal.get());
    typist.join();
    EXPECT_EQ(g_blockingCalls, 1) << "no call after removal";
}

// ---- Modifiers and messages ------------------------------------------------------------------

TEST(KeyboardHook, StrokesSendModifiersAroundTheKeyAndSysMessagesWhileAltIsHeld) {
    {
        std::lock_guard<std::mutex> lock(g_recording.mutex);
        g_recording.all.clear();
    }
    InstalledHook recorder(recordingHook);
    injectKeyStroke(stroke('A', true, true));
    injectKeyStroke(stroke('X', false, false, true));
    injectKeyStroke(stroke(0));
    injectKeyStroke(stroke(300, true));

    const std::vector<Seen> expected = {
        {kWmKeyDown, kVkControl, false, false, false},
        {kWmKeyDown, kVkShift, true, false, false},
        {kWmKeyDown, 'A', true, true, false},
        {kWmKeyUp, 'A', true, true, false},
        {kWmKeyUp, kVkShift, true, true, false},
        {kWmKeyUp, kVkControl, true, false, false},
        {kWmSysKeyDown, kVkMenu, false, false, false},
        {kWmSysKeyDown, 'X', false, false, true},
        {kWmSysKeyUp, 'X', false, false, true},
        {kWmSysKeyUp, kVkMenu, false, false, true},
    };
    std::lock_guard<std::mutex> lock(g_recording.mutex);
    EXPECT_EQ(g_recording.all, expected) << "key codes outside 1..254 are ignored";
    for (int vk : {kVkControl, kVkShift, kVkMenu, int('A'), int('X')}) EXPECT_GE(keyState(vk), 0) << vk;
}

// ---- Records read later on another thread -----------------------------------------------------

struct Handover {
    std::mutex mutex;
    std::condition_variable ready;
    std::deque<intptr_t> queue;
} g_handover;

intptr_t queueingHook(int code, uintptr_t wParam, intptr_t lParam) {
    {
        std::lock_guard<std::mutex> lock(g_handover.mutex);
        g_handover.queue.push_back(lParam);  // the address, not the record, as a queueing hook does
    }
    g_handover.ready.notify_one();
    return callNextKeyboardHook(code, wParam, lParam);
}

TEST(KeyboardHook, RecordsStayReadableFromAnotherThreadAfterDelivery) {
    InstalledHook hook(queueingHook);
    std::vector<std::pair<uint32_t, bool>> read;
    std::thread worker([&] {
        while (read.size() < 52) {
            std::unique_lock<std::mutex> lock(g_handover.mutex);
            if (!g_handover.ready.wait_for(lock, 5s, [] { return !g_handover.queue.empty(); })) return;
            const intptr_t lParam = g_handover.queue.front();
            g_handover.queue.pop_front();
            lock.unlock();
            std::this_thread::sleep_for(100us);  // the typist keeps going meanwhile
            read.emplace_back(recordAt(lParam).vkCode, (recordAt(lParam).flags & kFlagUp) != 0);
        }
    });
    for (int vk = 'A'; vk <= 'Z'; ++vk) injectKeyStroke(stroke(vk));
    worker.join();
    ASSERT_EQ(read.size(), 52u);
    for (size_t i = 0; i < read.size(); ++i) {
        EXPECT_EQ(read[i], std::make_pair(static_cast<uint32_t>('A' + i / 2), i % 2 == 1)) << i;
    }
}

// ---- Two typists at once ---------------------------------------------------------------------

std::atomic<int> g_events{0};
std::atomic<int> g_mixedUp{0};

intptr_t countingHook(int code, uintptr_t wParam, intptr_t lParam) {
    ++g_events;
    const uint32_t vk = recordAt(lParam).vkCode;
    if (wParam == kWmKeyDown && vk == 'A' && keyState(kVkControl) >= 0) ++g_mixedUp;
    if (wParam == kWmKeyDown && vk == 'B' && keyState(kVkControl) < 0) ++g_mixedUp;
    return callNextKeyboardHook(code, wParam, lParam);
}

TEST(KeyboardHook, StrokesFromTwoThreadsArriveWholeAndCounted) {
    g_events = 0;
    g_mixedUp = 0;
    InstalledHook hook(countingHook);
    constexpr int kStrokes = 300;
    std::thread one([] {
        for (int i = 0; i < kStrokes; ++i) injectKeyStroke(stroke('A', true));
    });
    std::thread two([] {
        for (int i = 0; i < kStrokes; ++i) injectKeyStroke(stroke('B'));
    });
    one.join();
    two.join();
    EXPECT_EQ(g_events, kStrokes * 4 + kStrokes * 2);
    EXPECT_EQ(g_mixedUp, 0) << "one thread's Ctrl leaked into the other's stroke";
}

// ---- The terminal ----------------------------------------------------------------------------

struct Pty {
    int master = -1;
    int slave = -1;
    std::string slavePath;

    Pty() {
        master = ::posix_openpt(O_RDWR | O_NOCTTY);
        if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0) return;
        ::fcntl(master, F_SETFD, FD_CLOEXEC);
        slavePath = ::ptsname(master);
        slave = ::open(slavePath.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    ~Pty() {
        if (slave >= 0) ::close(slave);
        if (master >= 0) ::close(master);
    }
    termios modes() const {
        termios t{};
        EXPECT_EQ(::tcgetattr(slave, &t), 0);
        return t;
    }
    void type(const std::string& bytes) const {
        ASSERT_EQ(::write(master, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
};

void expectSameModes(const termios& a, const termios& b) {
    EXPECT_EQ(a.c_iflag, b.c_iflag);
    EXPECT_EQ(a.c_oflag, b.c_oflag);
    EXPECT_EQ(a.c_cflag, b.c_cflag);
    EXPECT_EQ(a.c_lflag, b.c_lflag);
    EXPECT_EQ(0, std::memcmp(a.c_cc, b.c_cc, sizeof(a.c_cc)));
}

void expectRaw(const termios& t) {
    EXPECT_EQ(t.c_lflag & (ECHO | ICANON), 0u) << "echo and line editing are off";
    EXPECT_NE(t.c_lflag & ISIG, 0u) << "Ctrl+C still signals";
}

TEST(TerminalKeySource, TypedBytesArriveAsStrokesWithEchoOffUntilStop) {
    Pty pty;
    ASSERT_GE(pty.slave, 0) << std::strerror(errno);
    const termios original = pty.modes();
    ASSERT_NE(original.c_lflag & ECHO, 0u);
    {
        std::lock_guard<std::mutex> lock(g_recording.mutex);
        g_recording.pressed.clear();
    }
    InstalledHook recorder(recordingHook);

    TerminalKeySource source;
    std::string error;
    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    EXPECT_FALSE(source.start(pipeFds[0], error));
    EXPECT_NE(error.find("not a terminal"), std::string::npos) << error;
    ::close(pipeFds[0]);
    ::close(pipeFds[1]);

    ASSERT_TRUE(source.start(pty.slave, error)) << error;
    expectRaw(pty.modes());
    EXPECT_FALSE(source.start(pty.slave, error)) << "already running";
    TerminalKeySource second;
    EXPECT_FALSE(second.start(pty.slave, error)) << "one source per terminal";

    pty.type(std::string("aA7\x01\t\r \x7f\x1bx\x1b[A\x1b[1;5C\x1b[1;2D\x1b[1;3B\x1bOP\x1b[15~\x1b[24;5~\x1b[1;2P"));
    const std::vector<Seen> expected = {
        {kWmKeyDown, 'A', false, false, false},   {kWmKeyDown, 'A', false, true, false},
        {kWmKeyDown, '7', false, false, false},   {kWmKeyDown, 'A', true, false, false},
        {kWmKeyDown, kVkTab, false, false, false}, {kWmKeyDown, kVkReturn, false, false, false},
        {kWmKeyDown, kVkSpace, false, false, false}, {kWmKeyDown, kVkBack, false, false, false},
        {kWmSysKeyDown, 'X', false, false, true}, {kWmKeyDown, kVkUp, false, false, false},
        {kWmKeyDown, kVkRight, true, false, false}, {kWmKeyDown, kVkLeft, false, true, false},
        {kWmSysKeyDown, kVkDown, false, false, true}, {kWmKeyDown, kVkF1, false, false, false},
        {kWmKeyDown, kVkF1 + 4, false, false, false}, {kWmKeyDown, kVkF1 + 11, true, false, false},
        {kWmKeyDown, kVkF1, false, true, false},
    };
    ASSERT_TRUE(g_recording.waitForPressed(expected.size()));
    pty.type("\x1b");  // alone: Escape once nothing follows
    ASSERT_TRUE(g_recording.waitForPressed(expected.size() + 1));
    {
        std::lock_guard<std::mutex> lock(g_recording.mutex);
        EXPECT_EQ(std::vector<Seen>(g_recording.pressed.begin(), g_recording.pressed.begin() + expected.size()),
                  expected);
        EXPECT_EQ(g_recording.pressed.back(), (Seen{kWmKeyDown, kVkEscape, false, false, false}));
    }

    source.stop();
    expectSameModes(pty.modes(), original);
    ASSERT_TRUE(second.start(pty.slave, error)) << error;
    second.stop();
}

std::atomic<int> g_noted{0};
extern "C" void noteSignal(int signal) { g_noted = signal; }

TEST(TerminalKeySource, SignalRestoresTerminalThenRunsTheProgramsOwnHandler) {
    Pty pty;
    ASSERT_GE(pty.slave, 0) << std::strerror(errno);
    const termios original = pty.modes();
    struct sigaction savedInt {}, savedHup {}, note {};
    note.sa_handler = noteSignal;
    sigemptyset(&note.sa_mask);
    note.sa_flags = SA_RESTART | SA_RESETHAND;  // as a program that stops on the first Ctrl+C
    ASSERT_EQ(::sigaction(SIGINT, &note, &savedInt), 0);
    note.sa_flags = SA_RESTART;
    ASSERT_EQ(::sigaction(SIGHUP, &note, &savedHup), 0);

    TerminalKeySource source;
    std::string error;
    ASSERT_TRUE(source.start(pty.slave, error)) << error;
    expectRaw(pty.modes());
    g_noted = 0;
    ::raise(SIGINT);
    EXPECT_EQ(g_noted, SIGINT);
    expectSameModes(pty.modes(), original);
    g_noted = 0;
    ::raise(SIGHUP);
    EXPECT_EQ(g_noted, SIGHUP);
    source.stop();

    struct sigaction now {};
    ::sigaction(SIGINT, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_DFL) << "a one-shot handler that has run is spent, as without us";
    ::sigaction(SIGHUP, nullptr, &now);
    EXPECT_EQ(now.sa_handler, noteSignal) << "the program's handler is back";
    ::sigaction(SIGINT, &savedInt, nullptr);
    ::sigaction(SIGHUP, &savedHup, nullptr);
}

// Starts the probe on the terminal; its stdin and stdout are pipes held by `in` and `out`.
pid_t startProbe(const Pty& pty, int& in, int& out) {
    int toChild[2], fromChild[2];
    if (::pipe2(toChild, O_CLOEXEC) != 0 || ::pipe2(fromChild, O_CLOEXEC) != 0) return -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, toChild[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
    std::string program = KEY_SOURCE_PROBE;
    std::string path = pty.slavePath;
    char* argv[] = {program.data(), path.data(), nullptr};
    pid_t pid = -1;
    if (::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(toChild[0]);
    ::close(fromChild[1]);
    in = toChild[1];
    out = fromChild[0];
    return pid;
}

bool readReady(int fd) {
    std::string got;
    while (got.find('\n') == std::string::npos) {
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, 10000) != 1) return false;
        char buffer[64];
        const ssize_t n = ::read(fd, buffer, sizeof(buffer));
        if (n <= 0) return false;
        got.append(buffer, static_cast<size_t>(n));
    }
    return got == "ready\n";
}

TEST(TerminalKeySource, TerminalComesBackWhenTheProcessEndsBySigtermOrExit) {
    for (const bool bySignal : {true, false}) {
        SCOPED_TRACE(bySignal ? "SIGTERM" : "exit");
        Pty pty;
        ASSERT_GE(pty.slave, 0) << std::strerror(errno);
        const termios original = pty.modes();
        int in = -1, out = -1;
        const pid_t pid = startProbe(pty, in, out);
        ASSERT_GT(pid, 0);
        const bool ready = readReady(out);
        EXPECT_TRUE(ready);
        if (ready) expectRaw(pty.modes());
        if (bySignal) ::kill(pid, SIGTERM);
        if (!bySignal || !ready) ::close(in);  // the probe leaves when its stdin ends
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        if (bySignal && ready) ::close(in);
        ::close(out);
        if (bySignal) {
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
        } else {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        }
        expectSameModes(pty.modes(), original);
    }
}

}  // namespace
