// Fuzz target for the ASC or BLF reader (LOG_FUZZ_SUFFIX): any bytes either read as frames that
// obey the bus's rules and survive a write and a second read in the same format unchanged, or
// are refused with FILE:POSITION: reason. Any other exception, a crash or a sanitizer report
// is a finding.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "apps/ruvo/can_log.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

bool validLength(const canlog::Frame& f) {
    const size_t n = f.data.size();
    if (f.error) return n <= 8;
    if (f.remote) return n == 0 && !f.fd && f.remoteLength <= 8;
    if (!f.fd) return n <= 8 && !f.brs && !f.esi;
    return n <= 8 || n == 12 || n == 16 || n == 20 || n == 24 || n == 32 || n == 48 || n == 64;
}

std::string key(const canlog::Frame& f) {
    char text[96];
    std::snprintf(text, sizeof(text), "%lld %s %X %d%d%d%d%d%d%d %u|", static_cast<long long>(std::llround(f.time * 1e6)),
                  f.channel.c_str(), f.error ? 0 : f.id, f.extended && !f.error, f.remote, f.fd, f.brs, f.esi,
                  f.tx && !f.error, f.error, f.remoteLength);
    std::string out = text;
    if (!f.error) out.append(f.data.begin(), f.data.end());
    return out;
}

std::string written(const std::vector<canlog::Frame>& frames) {
    std::FILE* file = std::tmpfile();
    require(file != nullptr);
    {
        canlog::Writer out(file, LOG_FUZZ_SUFFIX, false);
        for (const auto& f : frames) out.write(f);
        out.finish();
    }
    std::string bytes;
    std::rewind(file);
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof(buffer), file)) > 0;) bytes.append(buffer, n);
    std::fclose(file);
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    const std::string name = std::string("fuzz") + LOG_FUZZ_SUFFIX;
    canlog::ReadResult r;
    try {
        r = canlog::read(in, LOG_FUZZ_SUFFIX, name, true);
    } catch (const canlog::LogError& e) {
        require(!e.position.empty() && !e.reason.empty());
        require(std::string(e.what()) == name + ":" + e.position + ": " + e.reason);
        return 0;
    }
    for (const auto& f : r.frames) {
        require(std::isfinite(f.time) && f.time >= 0 && f.time <= canlog::kMaxTime);
        require(canlog::channelNumber(f.channel) <= canlog::kMaxChannel);
        require(f.id <= (f.extended ? 0x1FFFFFFFu : 0x7FFu));
        require(validLength(f));
    }
    // ASC and BLF stamp frames from the first frame's millisecond, and a BLF stamp counts
    // nanoseconds in 62 bits: keep the frames that can be written after the first.
    std::vector<canlog::Frame> frames;
    const long long startUs = r.frames.empty() ? 0 : std::llround(r.frames.front().time * 1e6) / 1000 * 1000;
    for (const auto& f : r.frames) {
        const long long us = std::llround(f.time * 1e6);
        if (us >= startUs && us - startUs < 4000000000000000LL) frames.push_back(f);
    }
    const std::string once = written(frames);
    std::istringstream again(once);
    const canlog::ReadResult back = canlog::read(again, LOG_FUZZ_SUFFIX, "again", true);
    require(back.frames.size() == frames.size());
    for (size_t i = 0; i < frames.size(); ++i) require(key(back.frames[i]) == key(frames[i]));
    return 0;
}
