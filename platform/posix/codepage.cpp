#include "platform/codepage.h"

#include <iconv.h>

#include <cerrno>

namespace platform {

namespace {

// One descriptor per call: iconv_t keeps shift state and must not be shared between threads.
bool convert(const char* to, const char* from, std::string_view in, std::string& out) {
    out.clear();
    if (in.empty()) return true;
    iconv_t cd = iconv_open(to, from);
    if (cd == reinterpret_cast<iconv_t>(-1)) return false;
    std::string result;
    result.resize(in.size() * 2 + 4);
    char* src = const_cast<char*>(in.data());
    size_t srcLeft = in.size();
    size_t used = 0;
    bool ok = true;
    while (srcLeft > 0) {
        char* dst = &result[used];
        size_t dstLeft = result.size() - used;
        const size_t before = dstLeft;
        const size_t r = iconv(cd, &src, &srcLeft, &dst, &dstLeft);
        used += before - dstLeft;
        if (r == static_cast<size_t>(-1)) {
            if (errno == E2BIG) {
                result.resize(result.size() * 2);
                continue;
            }
            ok = false;  // EILSEQ or EINVAL: invalid or truncated input
            break;
        }
        if (r != 0) {  // irreversible conversions happened: a character had no equivalent
            ok = false;
            break;
        }
    }
    iconv_close(cd);
    if (!ok) return false;
    result.resize(used);
    out.swap(result);
    return true;
}

}  // namespace

bool utf8ToGbk(std::string_view in, std::string& out) { return convert("GBK", "UTF-8", in, out); }

bool gbkToUtf8(std::string_view in, std::string& out) { return convert("UTF-8", "GBK", in, out); }

}  // namespace platform
