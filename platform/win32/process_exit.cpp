#include "platform/process_exit.h"

#include <windows.h>

namespace platform {

bool processExiting() {
    // ntdll's own flag, set when ExitProcess has ended the other threads.
    using Query = BOOLEAN(WINAPI*)();
    static const Query query = [] {
        const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
        return ntdll ? reinterpret_cast<Query>(reinterpret_cast<void*>(GetProcAddress(ntdll, "RtlDllShutdownInProgress")))
                     : nullptr;
    }();
    return query != nullptr && query() != FALSE;
}

}  // namespace platform
