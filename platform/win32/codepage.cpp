#include "platform/codepage.h"

#include <windows.h>

#include <climits>

namespace platform {

namespace {

// Through UTF-16, with MB_ERR_INVALID_CHARS and a check of the default-character flag, so that
// invalid input fails instead of turning into question marks.
bool convert(UINT fromPage, UINT toPage, std::string_view in, std::string& out) {
    out.clear();
    if (in.empty()) return true;
    if (in.size() > static_cast<size_t>(INT_MAX)) return false;
    const int inLen = static_cast<int>(in.size());
    const int wideLen = MultiByteToWideChar(fromPage, MB_ERR_INVALID_CHARS, in.data(), inLen, nullptr, 0);
    if (wideLen <= 0) return false;
    std::wstring wide(static_cast<size_t>(wideLen), L'\0');
    if (MultiByteToWideChar(fromPage, MB_ERR_INVALID_CHARS, in.data(), inLen, &wide[0], wideLen) != wideLen) {
        return false;
    }
    // Code page 65001 takes no default-character arguments; there, WC_ERR_INVALID_CHARS does the check.
    const bool toUtf8 = toPage == CP_UTF8;
    BOOL usedDefault = FALSE;
    const DWORD flags = toUtf8 ? WC_ERR_INVALID_CHARS : 0;
    LPBOOL usedPtr = toUtf8 ? nullptr : &usedDefault;
    const int outLen = WideCharToMultiByte(toPage, flags, wide.data(), wideLen, nullptr, 0, nullptr, usedPtr);
    if (outLen <= 0 || usedDefault) return false;
    std::string result(static_cast<size_t>(outLen), '\0');
    if (WideCharToMultiByte(toPage, flags, wide.data(), wideLen, &result[0], outLen, nullptr, usedPtr) != outLen ||
        usedDefault) {
        return false;
    }
    out.swap(result);
    return true;
}

}  // namespace

bool utf8ToGbk(std::string_view in, std::string& out) { return convert(CP_UTF8, 936, in, out); }

bool gbkToUtf8(std::string_view in, std::string& out) { return convert(936, CP_UTF8, in, out); }

}  // namespace platform
