#pragma once
// The system-wide low-level keyboard hook, in the shape of SetWindowsHookExW(WH_KEYBOARD_LL):
// installed hook procedures see every key event as (code, wParam message, lParam pointing at a
// KeyHookRecord). On Windows these are the system calls. On POSIX the hook chain is this
// process's own, fed by injectKeyStroke: a TerminalKeySource turns what is typed on a terminal
// into strokes, and tests and scripted runs inject strokes directly.

#include <cstdint>
#include <memory>
#include <string>

#include "platform/export.h"

namespace platform {

constexpr uintptr_t kWmKeyDown = 0x0100;
constexpr uintptr_t kWmKeyUp = 0x0101;
constexpr uintptr_t kWmSysKeyDown = 0x0104;
constexpr uintptr_t kWmSysKeyUp = 0x0105;
constexpr int kVkShift = 0x10;
constexpr int kVkControl = 0x11;
constexpr int kVkMenu = 0x12;  // Alt
constexpr int kVkNumpad0 = 0x60;
constexpr int kVkBack = 0x08;
constexpr int kVkTab = 0x09;
constexpr int kVkReturn = 0x0D;
constexpr int kVkEscape = 0x1B;
constexpr int kVkSpace = 0x20;
constexpr int kVkLeft = 0x25;
constexpr int kVkUp = 0x26;
constexpr int kVkRight = 0x27;
constexpr int kVkDown = 0x28;
constexpr int kVkF1 = 0x70;  // F2 to F12 follow

// KBDLLHOOKSTRUCT: the virtual key code is the first 32-bit word.
struct KeyHookRecord {
    uint32_t vkCode;
    uint32_t scanCode;
    uint32_t flags;
    uint32_t time;
    uintptr_t extraInfo;
};

// lParam is the address of the event's KeyHookRecord: keep it whole (pointer-sized) when queued.
using KeyHookProc = intptr_t (*)(int code, uintptr_t wParam, intptr_t lParam);
using KeyHookHandle = void*;

// Installs `proc` for all threads. Null on failure, with the system's error code in `error`.
RUVO_PLATFORM_API KeyHookHandle setKeyboardHook(KeyHookProc proc, unsigned long& error);
// False for a handle that isn't installed. POSIX: once it returns, the procedure runs on no
// other thread and is never called again, so don't remove a hook while holding a lock its
// procedure takes. Removing from inside a delivery (even the hook's own) is fine.
RUVO_PLATFORM_API bool removeKeyboardHook(KeyHookHandle hook);
// Hands the event on to the next hook (CallNextHookEx); 0 past the last one or outside a hook.
// A hook that doesn't call it ends the event's way down the chain.
RUVO_PLATFORM_API intptr_t callNextKeyboardHook(int code, uintptr_t wParam, intptr_t lParam);
// GetKeyState: negative while the key is down.
RUVO_PLATFORM_API short keyState(int virtualKey);

// Lets the hooks this thread installed see what is pending, for up to `milliseconds`. Windows
// calls a low-level hook through its installing thread's message queue: a thread without a
// message loop of its own (a console program's) calls this where it waits. POSIX: sleeps.
RUVO_PLATFORM_API void serviceKeyboardHooks(int milliseconds);

// One press as a user makes it: a key with the modifiers held.
struct KeyStroke {
    int virtualKey = 0;
    bool ctrl = false;
    bool shift = false;
    bool alt = false;
};

// Delivers a stroke through the installed hooks, synchronously on the calling thread: modifier
// downs, the key down (WM_SYSKEYDOWN while Alt is held), the key up, modifier ups, with keyState
// following each. The record behind lParam stays readable for the next 1024 events, since a
// hook may read it later from another thread. On Windows the stroke goes through SendInput.
// POSIX: strokes from several threads don't interleave (as with SendInput), keyState changes
// after each event has been through the hooks, and a virtual key outside 1..254 is ignored.
RUVO_PLATFORM_API void injectKeyStroke(const KeyStroke& stroke);

// Reads keys typed on a terminal (raw mode, no echo; Ctrl+C still signals) and injects them as
// strokes. The terminal is restored on stop, on exit and on the signals that end the process.
// A terminal can't tell every combination apart (Ctrl+Shift+A arrives as Ctrl+A, the keypad
// as plain digits); on Windows the system hook sees the keyboard itself and this does nothing.
class RUVO_PLATFORM_API TerminalKeySource {
public:
    TerminalKeySource();
    ~TerminalKeySource();  // stops
    TerminalKeySource(const TerminalKeySource&) = delete;
    TerminalKeySource& operator=(const TerminalKeySource&) = delete;

    // False, with the reason in `error`, if `fd` is no terminal or can't be set up.
    bool start(int fd, std::string& error);
    void stop();

private:
    struct State;
    std::unique_ptr<State> state;
};

}  // namespace platform
