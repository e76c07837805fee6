#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/keyboard_hook.h"

namespace platform {

namespace {

// ---- The hook chain --------------------------------------------------------------------------

struct Hook {
    KeyHookProc proc = nullptr;
    uint64_t order = 0;  // install order: the chain runs from the newest down
    int calls = 0;       // calls inside proc right now, all threads together (under Chain::mutex)
};

struct Chain {
    std::mutex mutex;
    std::condition_variable callEnded;
    std::map<uint64_t, std::shared_ptr<Hook>> hooks;  // by order
    uint64_t nextOrder = 1;
};

// Never destroyed: a terminal reader may still inject while the process exits.
Chain& chain() {
    static Chain* const instance = new Chain;
    return *instance;
}

constexpr uint64_t kAboveAll = UINT64_MAX;
// Per delivery on this thread (deliveries nest when a hook injects): the order of the hook
// whose procedure runs, so callNextKeyboardHook knows which one is next.
thread_local std::vector<uint64_t> t_cursors;
// Hooks inside their procedure on this thread: removing one of them can't wait for itself.
thread_local std::vector<const Hook*> t_running;

// Calls the newest hook below `t_cursors[level]`.
intptr_t callBelow(size_t level, int code, uintptr_t wParam, intptr_t lParam) {
    Chain& c = chain();
    std::shared_ptr<Hook> hook;
    {
        std::lock_guard<std::mutex> lock(c.mutex);
        auto it = c.hooks.lower_bound(t_cursors[level]);
        if (it == c.hooks.begin()) return 0;
        hook = (--it)->second;
        ++hook->calls;
    }
    struct Leave {
        Chain& c;
        const std::shared_ptr<Hook>& hook;
        size_t level;
        uint64_t cursor;
        ~Leave() {
            t_cursors[level] = cursor;
            t_running.pop_back();
            std::lock_guard<std::mutex> lock(c.mutex);
            --hook->calls;
            c.callEnded.notify_all();
        }
    } leave{c, hook, level, t_cursors[level]};
    t_cursors[level] = hook->order;
    t_running.push_back(hook.get());
    return hook->proc(code, wParam, lParam);
}

intptr_t deliver(int code, uintptr_t wParam, intptr_t lParam) {
    t_cursors.push_back(kAboveAll);
    struct Pop {
        ~Pop() { t_cursors.pop_back(); }
    } pop;
    return callBelow(t_cursors.size() - 1, code, wParam, lParam);
}

// ---- Key states and injection ----------------------------------------------------------------

constexpr short kDown = static_cast<short>(0xFF80);  // what GetKeyState gives for a pressed key
constexpr short kToggled = 1;
std::atomic<short> g_keyStates[256];

constexpr uint32_t kFlagAltDown = 0x20;  // LLKHF_ALTDOWN
constexpr uint32_t kFlagInjected = 0x10;  // LLKHF_INJECTED
constexpr uint32_t kFlagUp = 0x80;        // LLKHF_UP

// The records behind lParam. A hook may queue the address and read it on another thread after
// it returned; a slot is written again only 1024 events later, so a reader that lags further
// behind reads a later event. Each slot is filled before its delivery, so the hook's own hand-over
// (a queue under a mutex) orders the write before the read.
constexpr size_t kRecordRing = 1024;
KeyHookRecord g_records[kRecordRing];
size_t g_nextRecord = 0;  // under strokeMutex()

// One stroke at a time, as SendInput guarantees; recursive, since a hook may inject.
std::recursive_mutex& strokeMutex() {
    static std::recursive_mutex* const instance = new std::recursive_mutex;
    return *instance;
}

uint32_t tickMilliseconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

void sendKeyEvent(int virtualKey, bool up) {
    const bool alt = virtualKey == kVkMenu || g_keyStates[kVkMenu].load() < 0;
    KeyHookRecord& record = g_records[g_nextRecord];
    g_nextRecord = (g_nextRecord + 1) % kRecordRing;
    record.vkCode = static_cast<uint32_t>(virtualKey);
    record.scanCode = 0;
    record.flags = kFlagInjected | (alt ? kFlagAltDown : 0) | (up ? kFlagUp : 0);
    record.time = tickMilliseconds();
    record.extraInfo = 0;
    const uintptr_t message = up ? (alt ? kWmSysKeyUp : kWmKeyUp) : (alt ? kWmSysKeyDown : kWmKeyDown);
    deliver(0, message, reinterpret_cast<intptr_t>(&record));
    std::atomic<short>& state = g_keyStates[virtualKey];
    const short before = state.load();
    if (up) {
        state.store(static_cast<short>(before & kToggled));
    } else if (before >= 0) {  // a press, not a repeat, flips the toggle
        state.store(static_cast<short>(kDown | ((before & kToggled) ^ kToggled)));
    }
}

// ---- Terminal bytes to strokes ---------------------------------------------------------------

constexpr int kVkPrior = 0x21, kVkNext = 0x22, kVkEnd = 0x23, kVkHome = 0x24;
constexpr int kVkInsert = 0x2D, kVkDelete = 0x2E;
constexpr char kEsc = '\x1b';

bool found(KeyStroke& stroke, int virtualKey, bool shift = false, bool ctrl = false) {
    stroke = KeyStroke();
    stroke.virtualKey = virtualKey;
    stroke.shift = shift;
    stroke.ctrl = ctrl;
    return true;
}

// Punctuation as on a US keyboard: the unshifted and shifted character of each key.
struct PunctuationKey {
    char plain;
    char shifted;
    int virtualKey;
};
constexpr PunctuationKey kPunctuation[] = {
    {';', ':', 0xBA}, {'=', '+', 0xBB}, {',', '<', 0xBC}, {'-', '_', 0xBD},
    {'.', '>', 0xBE}, {'/', '?', 0xBF}, {'`', '~', 0xC0}, {'[', '{', 0xDB},
    {'\\', '|', 0xDC}, {']', '}', 0xDD}, {'\'', '"', 0xDE},
};
constexpr char kShiftedDigits[] = ")!@#$%^&*(";

// One byte typed alone; false for bytes that name no key.
bool strokeOfByte(unsigned char b, KeyStroke& stroke) {
    if (b >= 'a' && b <= 'z') return found(stroke, b - 'a' + 'A');
    if (b >= 'A' && b <= 'Z') return found(stroke, b, true);
    if (b >= '0' && b <= '9') return found(stroke, b);
    switch (b) {
        case ' ': return found(stroke, kVkSpace);
        case '\t': return found(stroke, kVkTab);
        case '\r':
        case '\n': return found(stroke, kVkReturn);
        case 0x7F: return found(stroke, kVkBack);
        case 0x00: return found(stroke, kVkSpace, false, true);
        case 0x1C: return found(stroke, 0xDC, false, true);  // Ctrl+Backslash, if not SIGQUIT
        case 0x1D: return found(stroke, 0xDD, false, true);  // Ctrl+]
        default: break;
    }
    if (b >= 1 && b <= 26) return found(stroke, 'A' + b - 1, false, true);
    for (const PunctuationKey& key : kPunctuation) {
        if (b == static_cast<unsigned char>(key.plain)) return found(stroke, key.virtualKey);
        if (b == static_cast<unsigned char>(key.shifted)) return found(stroke, key.virtualKey, true);
    }
    if (const char* digit = std::strchr(kShiftedDigits, b)) {
        return found(stroke, '0' + static_cast<int>(digit - kShiftedDigits), true);
    }
    return false;
}

// xterm's modifier parameter: 1 + (1 Shift, 2 Alt, 4 Ctrl).
void applyModifier(int parameter, KeyStroke& stroke) {
    if (parameter < 2) return;
    const int bits = parameter - 1;
    stroke.shift = stroke.shift || (bits & 1) != 0;
    stroke.alt = stroke.alt || (bits & 2) != 0;
    stroke.ctrl = stroke.ctrl || (bits & 4) != 0;
}

int keyOfFinal(char final) {
    switch (final) {
        case 'A': return kVkUp;
        case 'B': return kVkDown;
        case 'C': return kVkRight;
        case 'D': return kVkLeft;
        case 'H': return kVkHome;
        case 'F': return kVkEnd;
        case 'P': return kVkF1;
        case 'Q': return kVkF1 + 1;
        case 'R': return kVkF1 + 2;
        case 'S': return kVkF1 + 3;
        default: return 0;
    }
}

int keyOfTilde(int number) {
    switch (number) {
        case 1: case 7: return kVkHome;
        case 2: return kVkInsert;
        case 3: return kVkDelete;
        case 4: case 8: return kVkEnd;
        case 5: return kVkPrior;
        case 6: return kVkNext;
        case 11: case 12: case 13: case 14: case 15: return kVkF1 + number - 11;
        case 17: case 18: case 19: case 20: case 21: return kVkF1 + 5 + number - 17;
        case 23: case 24: return kVkF1 + 10 + number - 23;
        default: return 0;
    }
}

constexpr size_t kLongestSequence = 32;  // an unfinished sequence longer than this is noise

// Reads one key from the front of `in`. Returns the bytes it took (with `isKey` saying whether
// they make a stroke), or 0 when the bytes so far may still grow into a longer sequence and
// `complete` is false. With `complete` (nothing more came in time) it always takes something.
size_t readKey(const std::string& in, bool complete, KeyStroke& stroke, bool& isKey) {
    isKey = false;
    const auto b = static_cast<unsigned char>(in[0]);
    if (b >= 0x80) {  // UTF-8: no key of its own; skip the whole character
        const size_t length = b >= 0xF0 ? 4 : b >= 0xE0 ? 3 : b >= 0xC0 ? 2 : 1;
        if (in.size() < length && !complete) return 0;
        return std::min(length, in.size());
    }
    if (b != kEsc) {
        isKey = strokeOfByte(b, stroke);
        return 1;
    }
    if (in.size() == 1) {
        if (!complete) return 0;
        isKey = found(stroke, kVkEscape);
        return 1;
    }
    const char second = in[1];
    if (second == '[' || second == 'O') {
        // CSI: parameters, then a final byte; SS3: an optional modifier digit, then the final.
        size_t end = 2;
        while (end < in.size() && end < kLongestSequence) {
            const auto c = static_cast<unsigned char>(in[end]);
            if (c >= 0x40 && c <= 0x7E && !(second == '[' && end == 2 && c == '[')) break;
            if (second == 'O' && !(c >= '0' && c <= '9')) break;
            ++end;
        }
        if (end >= in.size() || end >= kLongestSequence) {
            if (!complete && end < kLongestSequence) return 0;
            if (in.size() == 2) {  // ESC [ or ESC O alone: Alt with that key
                isKey = strokeOfByte(static_cast<unsigned char>(second), stroke);
                stroke.alt = true;
                return 2;
            }
            return std::min(in.size(), kLongestSequence);
        }
        const char final = in[end];
        const std::string body = in.substr(2, end - 2);
        const size_t taken = end + 1;
        if (second == '[' && body == "[") {  // the Linux console's F1 to F5
            if (final >= 'A' && final <= 'E') isKey = found(stroke, kVkF1 + (final - 'A'));
            return taken;
        }
        int numbers[2] = {0, 0};
        size_t count = 0;
        bool plain = true;
        if (second == 'O') {  // the digits are the modifier
            for (char c : body) {
                if (numbers[1] < 1000) numbers[1] = numbers[1] * 10 + (c - '0');
            }
        } else {
            for (char c : body) {
                if (c == ';') {
                    if (++count > 1) plain = false;
                } else if (c >= '0' && c <= '9') {
                    if (count < 2 && numbers[count] < 1000) numbers[count] = numbers[count] * 10 + (c - '0');
                } else {
                    plain = false;  // private or intermediate bytes: mouse reports and the like
                }
            }
        }
        if (!plain) return taken;
        const int key = final == '~' && second == '[' ? keyOfTilde(numbers[0])
                        : final == 'Z' && second == '[' ? kVkTab
                                                        : keyOfFinal(final);
        if (key == 0) return taken;
        isKey = found(stroke, key, final == 'Z');
        applyModifier(numbers[1], stroke);
        return taken;
    }
    if (second == kEsc || static_cast<unsigned char>(second) >= 0x80) {  // the ESC was a key of its own
        isKey = found(stroke, kVkEscape);
        return 1;
    }
    isKey = strokeOfByte(static_cast<unsigned char>(second), stroke);
    stroke.alt = true;
    return 2;
}

// ---- Putting the terminal back ---------------------------------------------------------------

// What a signal handler needs to restore a terminal: plain data, constant-initialised, so it is
// there from the first signal to the last atexit handler.
struct TerminalSlot {
    std::atomic<int> fd{-1};  // published after `saved`; -1 when free
    struct termios saved {};
    dev_t device = 0;
    bool taken = false;  // under terminalsMutex()
};
constexpr size_t kTerminalSlots = 8;
TerminalSlot g_terminals[kTerminalSlots];

constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr size_t kSignalCount = sizeof(kEndingSignals) / sizeof(kEndingSignals[0]);
struct sigaction g_previous[kSignalCount];  // written only while our handler isn't installed
std::atomic<bool> g_previousSpent[kSignalCount];  // an SA_RESETHAND handler has run once
bool g_installed[kSignalCount];  // under terminalsMutex()
size_t g_activeTerminals = 0;    // under terminalsMutex()
bool g_atexitRegistered = false;  // under terminalsMutex()

std::mutex& terminalsMutex() {
    static std::mutex* const instance = new std::mutex;
    return *instance;
}

void restoreAllTerminals() {
    for (TerminalSlot& slot : g_terminals) {
        const int fd = slot.fd.load(std::memory_order_acquire);
        if (fd >= 0) ::tcsetattr(fd, TCSANOW, &slot.saved);
    }
}

extern "C" void restoreTerminalsAtExit() { restoreAllTerminals(); }

// Puts every terminal back, then lets the signal do what it did before we came: the handler the
// program had installed, or the default action (the process ends with this signal).
extern "C" void onEndingSignal(int signal, siginfo_t* info, void* context) {
    const int savedErrno = errno;
    restoreAllTerminals();
    size_t i = 0;
    while (i < kSignalCount && kEndingSignals[i] != signal) ++i;
    if (i < kSignalCount && !g_previousSpent[i].load()) {
        const struct sigaction& previous = g_previous[i];
        const bool siginfo = (previous.sa_flags & SA_SIGINFO) != 0;
        if (siginfo ? previous.sa_sigaction != nullptr : previous.sa_handler != SIG_DFL) {
            if (previous.sa_flags & SA_RESETHAND) g_previousSpent[i].store(true);
            if (siginfo) {
                previous.sa_sigaction(signal, info, context);
            } else {
                previous.sa_handler(signal);
            }
            errno = savedErrno;
            return;
        }
    }
    struct sigaction fallback {};
    fallback.sa_handler = SIG_DFL;
    sigemptyset(&fallback.sa_mask);
    ::sigaction(signal, &fallback, nullptr);
    ::raise(signal);  // blocked until this handler returns, then the default action
    errno = savedErrno;
}

bool isOurs(const struct sigaction& action) {
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == onEndingSignal;
}

void installSignalHandlers() {
    for (size_t i = 0; i < kSignalCount; ++i) {
        g_installed[i] = false;
        struct sigaction old {};
        if (::sigaction(kEndingSignals[i], nullptr, &old) != 0) continue;
        // An ignored signal doesn't end the process; one already ours needs no second layer.
        if ((!(old.sa_flags & SA_SIGINFO) && old.sa_handler == SIG_IGN) || isOurs(old)) continue;
        g_previous[i] = old;
        g_previousSpent[i].store(false);
        struct sigaction ours {};
        ours.sa_sigaction = onEndingSignal;
        ours.sa_flags = SA_SIGINFO | (old.sa_flags & SA_RESTART);
        sigemptyset(&ours.sa_mask);
        for (int other : kEndingSignals) sigaddset(&ours.sa_mask, other);
        g_installed[i] = ::sigaction(kEndingSignals[i], &ours, nullptr) == 0;
    }
}

// Gives each signal back what it had, unless someone installed a handler over ours meanwhile.
void removeSignalHandlers() {
    for (size_t i = 0; i < kSignalCount; ++i) {
        if (!g_installed[i]) continue;
        g_installed[i] = false;
        struct sigaction current {};
        if (::sigaction(kEndingSignals[i], nullptr, &current) != 0 || !isOurs(current)) continue;
        struct sigaction back = g_previous[i];
        if (g_previousSpent[i].load()) {  // the kernel would have reset it by now
            back = {};
            back.sa_handler = SIG_DFL;
            sigemptyset(&back.sa_mask);
        }
        ::sigaction(kEndingSignals[i], &back, nullptr);
    }
}

// Takes a slot for `fd`'s terminal and arms the handlers; the error text when it can't.
int claimTerminal(int fd, const struct termios& saved, dev_t device, std::string& error) {
    std::lock_guard<std::mutex> lock(terminalsMutex());
    int free = -1;
    for (size_t i = 0; i < kTerminalSlots; ++i) {
        if (g_terminals[i].taken && g_terminals[i].device == device) {
            error = "the terminal is already read by another key source";
            return -1;
        }
        if (!g_terminals[i].taken && free < 0) free = static_cast<int>(i);
    }
    if (free < 0) {
        error = "too many terminals read at once";
        return -1;
    }
    TerminalSlot& slot = g_terminals[free];
    slot.taken = true;
    slot.device = device;
    slot.saved = saved;
    slot.fd.store(fd, std::memory_order_release);
    if (g_activeTerminals++ == 0) installSignalHandlers();
    if (!g_atexitRegistered) g_atexitRegistered = std::atexit(restoreTerminalsAtExit) == 0;
    return free;
}

void releaseTerminal(int index) {
    std::lock_guard<std::mutex> lock(terminalsMutex());
    TerminalSlot& slot = g_terminals[index];
    const int fd = slot.fd.exchange(-1);
    if (fd >= 0) ::tcsetattr(fd, TCSANOW, &slot.saved);
    slot.taken = false;
    if (--g_activeTerminals == 0) removeSignalHandlers();
}

void closeFd(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

// How long a lone ESC waits for the rest of a sequence before it counts as the Escape key.
constexpr int kEscapeWaitMs = 100;

}  // namespace

KeyHookHandle setKeyboardHook(KeyHookProc proc, unsigned long& error) {
    if (proc == nullptr) {
        error = EINVAL;
        return nullptr;
    }
    Chain& c = chain();
    try {
        auto hook = std::make_shared<Hook>();
        hook->proc = proc;
        std::lock_guard<std::mutex> lock(c.mutex);
        hook->order = c.nextOrder++;
        c.hooks.emplace(hook->order, hook);
        error = 0;
        return hook.get();
    } catch (const std::bad_alloc&) {
        error = ENOMEM;
        return nullptr;
    }
}

bool removeKeyboardHook(KeyHookHandle handle) {
    Chain& c = chain();
    std::unique_lock<std::mutex> lock(c.mutex);
    const auto it = std::find_if(c.hooks.begin(), c.hooks.end(),
                                 [&](const auto& entry) { return entry.second.get() == handle; });
    if (handle == nullptr || it == c.hooks.end()) return false;
    const std::shared_ptr<Hook> hook = it->second;
    c.hooks.erase(it);
    const auto own = std::count(t_running.begin(), t_running.end(), hook.get());
    c.callEnded.wait(lock, [&] { return hook->calls <= own; });
    return true;
}

intptr_t callNextKeyboardHook(int code, uintptr_t wParam, intptr_t lParam) {
    if (t_cursors.empty()) return 0;
    return callBelow(t_cursors.size() - 1, code, wParam, lParam);
}

short keyState(int virtualKey) {
    if (virtualKey < 0 || virtualKey > 255) return 0;
    return g_keyStates[virtualKey].load();
}

void serviceKeyboardHooks(int milliseconds) {
    // The hooks run on the injecting thread here, never through a queue.
    if (milliseconds > 0) std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void injectKeyStroke(const KeyStroke& stroke) {
    if (stroke.virtualKey < 1 || stroke.virtualKey > 254) return;
    std::lock_guard<std::recursive_mutex> lock(strokeMutex());
    if (stroke.ctrl) sendKeyEvent(kVkControl, false);
    if (stroke.shift) sendKeyEvent(kVkShift, false);
    if (stroke.alt) sendKeyEvent(kVkMenu, false);
    sendKeyEvent(stroke.virtualKey, false);
    sendKeyEvent(stroke.virtualKey, true);
    if (stroke.alt) sendKeyEvent(kVkMenu, true);
    if (stroke.shift) sendKeyEvent(kVkShift, true);
    if (stroke.ctrl) sendKeyEvent(kVkControl, true);
}

struct TerminalKeySource::State {
    std::mutex mutex;  // start and stop
    std::thread reader;
    int fd = -1;
    int slot = -1;
    int wake[2] = {-1, -1};  // stop() writes to wake[1]

    void read();
};

void TerminalKeySource::State::read() {
    std::string pending;
    const auto take = [&](bool complete) {
        while (!pending.empty()) {
            KeyStroke stroke;
            bool isKey = false;
            const size_t used = readKey(pending, complete, stroke, isKey);
            if (used == 0) return;
            pending.erase(0, used);
            if (isKey) injectKeyStroke(stroke);
        }
    };
    for (;;) {
        struct pollfd fds[2] = {{fd, POLLIN, 0}, {wake[0], POLLIN, 0}};
        const int ready = ::poll(fds, 2, pending.empty() ? -1 : kEscapeWaitMs);
        if (ready < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (fds[1].revents != 0) return;
        if (ready == 0) {
            take(true);
            continue;
        }
        if (fds[0].revents & POLLIN) {
            char buffer[256];
            const ssize_t n = ::read(fd, buffer, sizeof(buffer));
            if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
            if (n <= 0) return;  // hung up
            pending.append(buffer, static_cast<size_t>(n));
            take(false);
        } else if (fds[0].revents & (POLLHUP | POLLERR | POLLNVAL)) {
            return;
        }
    }
}

TerminalKeySource::TerminalKeySource() : state(new State) {}

TerminalKeySource::~TerminalKeySource() { stop(); }

bool TerminalKeySource::start(int fd, std::string& error) {
    std::lock_guard<std::mutex> lock(state->mutex);
    if (state->reader.joinable()) {
        error = "this key source already reads a terminal";
        return false;
    }
    struct termios original {};
    struct stat info {};
    if (!::isatty(fd) || ::tcgetattr(fd, &original) != 0 || ::fstat(fd, &info) != 0) {
        error = std::string("not a terminal: ") + std::strerror(errno);
        return false;
    }
    // A background job would be stopped by SIGTTOU here, and its keys are the shell's anyway.
    const pid_t foreground = ::tcgetpgrp(fd);
    if (foreground >= 0 && foreground != ::getpgrp()) {
        error = "the terminal belongs to another process group (running in the background?)";
        return false;
    }
    if (::pipe2(state->wake, O_CLOEXEC) != 0) {
        error = std::string("pipe failed: ") + std::strerror(errno);
        return false;
    }
    const int slot = claimTerminal(fd, original, info.st_rdev, error);
    if (slot < 0) {
        closeFd(state->wake[0]);
        closeFd(state->wake[1]);
        return false;
    }
    // Keys arrive one by one and unechoed; Ctrl+C and Ctrl+\ still signal. Ctrl+Z, Ctrl+S,
    // Ctrl+Q and Ctrl+V become keys too, and Enter stays CR. Output is left alone, so the
    // program's lines still end as before.
    struct termios raw = original;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ECHONL | IEXTEN);
    raw.c_iflag &= ~static_cast<tcflag_t>(ICRNL | INLCR | IGNCR | IXON | ISTRIP);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    raw.c_cc[VSUSP] = _POSIX_VDISABLE;
    if (::tcsetattr(fd, TCSANOW, &raw) != 0) {
        error = std::string("tcsetattr failed: ") + std::strerror(errno);
        releaseTerminal(slot);
        closeFd(state->wake[0]);
        closeFd(state->wake[1]);
        return false;
    }
    state->fd = fd;
    state->slot = slot;
    try {
        state->reader = std::thread([s = state.get()] { s->read(); });
    } catch (const std::system_error& e) {
        error = std::string("no reader thread: ") + e.what();
        releaseTerminal(slot);
        closeFd(state->wake[0]);
        closeFd(state->wake[1]);
        return false;
    }
    return true;
}

void TerminalKeySource::stop() {
    std::lock_guard<std::mutex> lock(state->mutex);
    if (!state->reader.joinable()) return;
    const char wake = 1;
    while (::write(state->wake[1], &wake, 1) < 0 && errno == EINTR) {
    }
    state->reader.join();
    closeFd(state->wake[0]);
    closeFd(state->wake[1]);
    releaseTerminal(state->slot);
    state->slot = -1;
    state->fd = -1;
}

}  // namespace platform
