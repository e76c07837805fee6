#include <windows.h>

#include <array>
#include <atomic>
#include <mutex>
#include <utility>

#include "platform/keyboard_hook.h"

namespace platform {

namespace {

// The system calls a hook procedure as CALLBACK (stdcall on 32-bit Windows) while KeyHookProc
// is a plain C function, so each installed hook gets a trampoline of its own that forwards.
constexpr int kHookSlots = 16;
std::atomic<KeyHookProc> g_procs[kHookSlots];
HHOOK g_hooks[kHookSlots];  // under slotsMutex()

std::mutex& slotsMutex() {
    static std::mutex* const instance = new std::mutex;
    return *instance;
}

template <int N>
LRESULT CALLBACK trampoline(int code, WPARAM wParam, LPARAM lParam) {
    const KeyHookProc proc = g_procs[N].load();
    if (proc == nullptr) return CallNextHookEx(nullptr, code, wParam, lParam);
    return static_cast<LRESULT>(proc(code, static_cast<uintptr_t>(wParam), static_cast<intptr_t>(lParam)));
}

template <int... N>
constexpr std::array<HOOKPROC, sizeof...(N)> makeTrampolines(std::integer_sequence<int, N...>) {
    return {{&trampoline<N>...}};
}
constexpr std::array<HOOKPROC, kHookSlots> kTrampolines =
    makeTrampolines(std::make_integer_sequence<int, kHookSlots>{});

bool isExtendedKey(int virtualKey) {
    switch (virtualKey) {
        case VK_PRIOR: case VK_NEXT: case VK_END: case VK_HOME:
        case VK_LEFT: case VK_UP: case VK_RIGHT: case VK_DOWN:
        case VK_INSERT: case VK_DELETE: case VK_DIVIDE: case VK_NUMLOCK:
            return true;
        default:
            return false;
    }
}

INPUT keyInput(int virtualKey, bool up) {
    INPUT input {};
    input.type = INPUT_KEYBOARD;
    input.ki.wVk = static_cast<WORD>(virtualKey);
    input.ki.dwFlags = (up ? KEYEVENTF_KEYUP : 0) | (isExtendedKey(virtualKey) ? KEYEVENTF_EXTENDEDKEY : 0);
    return input;
}

}  // namespace

KeyHookHandle setKeyboardHook(KeyHookProc proc, unsigned long& error) {
    if (proc == nullptr) {
        error = ERROR_INVALID_PARAMETER;
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(slotsMutex());
    for (int i = 0; i < kHookSlots; ++i) {
        if (g_hooks[i] != nullptr) continue;
        g_procs[i].store(proc);
        const HHOOK hook = SetWindowsHookExW(WH_KEYBOARD_LL, kTrampolines[i], nullptr, 0);
        if (hook == nullptr) {
            error = GetLastError();
            g_procs[i].store(nullptr);
            return nullptr;
        }
        g_hooks[i] = hook;
        error = 0;
        return hook;
    }
    error = ERROR_NOT_ENOUGH_MEMORY;
    return nullptr;
}

bool removeKeyboardHook(KeyHookHandle handle) {
    if (handle == nullptr) return false;
    std::lock_guard<std::mutex> lock(slotsMutex());
    for (int i = 0; i < kHookSlots; ++i) {
        if (g_hooks[i] != static_cast<HHOOK>(handle)) continue;
        if (!UnhookWindowsHookEx(g_hooks[i])) return false;
        g_hooks[i] = nullptr;
        g_procs[i].store(nullptr);
        return true;
    }
    return false;
}

intptr_t callNextKeyboardHook(int code, uintptr_t wParam, intptr_t lParam) {
    return static_cast<intptr_t>(
        CallNextHookEx(nullptr, code, static_cast<WPARAM>(wParam), static_cast<LPARAM>(lParam)));
}

short keyState(int virtualKey) { return GetKeyState(virtualKey); }

void serviceKeyboardHooks(int milliseconds) {
    const ULONGLONG end = GetTickCount64() + static_cast<ULONGLONG>(milliseconds > 0 ? milliseconds : 0);
    for (;;) {
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
        const ULONGLONG now = GetTickCount64();
        if (now >= end) return;
        MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(end - now), QS_ALLINPUT);
    }
}

void injectKeyStroke(const KeyStroke& stroke) {
    if (stroke.virtualKey < 1 || stroke.virtualKey > 254) return;
    INPUT inputs[8];
    UINT count = 0;
    if (stroke.ctrl) inputs[count++] = keyInput(VK_CONTROL, false);
    if (stroke.shift) inputs[count++] = keyInput(VK_SHIFT, false);
    if (stroke.alt) inputs[count++] = keyInput(VK_MENU, false);
    inputs[count++] = keyInput(stroke.virtualKey, false);
    inputs[count++] = keyInput(stroke.virtualKey, true);
    if (stroke.alt) inputs[count++] = keyInput(VK_MENU, true);
    if (stroke.shift) inputs[count++] = keyInput(VK_SHIFT, true);
    if (stroke.ctrl) inputs[count++] = keyInput(VK_CONTROL, true);
    SendInput(count, inputs, static_cast<int>(sizeof(INPUT)));
}

// The system hook sees the keyboard itself: nothing to read from a console.
struct TerminalKeySource::State {};

TerminalKeySource::TerminalKeySource() : state(new State) {}

TerminalKeySource::~TerminalKeySource() { stop(); }

bool TerminalKeySource::start(int fd, std::string& error) {
    (void)fd;
    error.clear();
    return true;
}

void TerminalKeySource::stop() {}

}  // namespace platform
