// Fuzz target for the CAN log reader: any bytes either read as frames that obey the bus's
// rules and survive a write and a second read unchanged, or are refused with FILE:LINE: reason.
// Any other exception, a crash or a sanitizer report is a finding.

#include <cmath>
#include <cstdint>
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
    if (f.remote) return n == 0 && !f.fd && f.remoteLength <= 8;
    if (!f.fd) return n <= 8;
    return n <= 8 || n == 12 || n == 16 || n == 20 || n == 24 || n == 32 || n == 48 || n == 64;
}

std::string written(const std::vector<canlog::Frame>& frames) {
    std::string text;
    for (const auto& f : frames) text += canlog::formatLine(".log", f) + "\n";
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    canlog::ReadResult r;
    try {
        r = canlog::read(in, ".log", "fuzz.log");
    } catch (const canlog::LogError& e) {
        require(e.line >= 1 && !e.reason.empty());
        require(std::string(e.what()) == "fuzz.log:" + std::to_string(e.line) + ": " + e.reason);
        return 0;
    }
    for (const auto& f : r.frames) {
        require(std::isfinite(f.time) && f.time >= 0 && f.time <= canlog::kMaxTime);
        require(canlog::channelNumber(f.channel) <= canlog::kMaxChannel);
        require(f.id <= (f.extended ? 0x1FFFFFFFu : 0x7FFu));
        require(validLength(f));
    }
    // What we write we read back as the same frames.
    const std::string once = written(r.frames);
    std::istringstream again(once);
    const canlog::ReadResult back = canlog::read(again, ".log", "again.log");
    require(back.frames.size() == r.frames.size() && back.skipped == 0);
    require(written(back.frames) == once);
    return 0;
}
