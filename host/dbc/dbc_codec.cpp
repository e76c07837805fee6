#include "host/dbc/dbc_codec.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace hostbridge::dbc {

namespace {

// Walks the signal's bits from most to least significant: calls f(byte, bit) for each.
// Returns false when a bit lies outside the payload.
template <typename F>
bool walkBits(const Signal& s, size_t size, F f) {
    if (s.length == 0 || s.length > 64) return false;
    if (s.byteOrder == ByteOrder::Intel) {
        uint64_t last = uint64_t{s.startBit} + s.length;  // one past the most significant bit
        if (last > size * 8) return false;
        for (uint64_t pos = last; pos-- > s.startBit;) f(pos / 8, pos % 8);
        return true;
    }
    uint32_t pos = s.startBit;
    for (uint32_t i = 0; i < s.length; ++i) {
        if (pos / 8 >= size) return false;
        f(pos / 8, pos % 8);
        pos = (pos % 8 == 0) ? pos + 15 : pos - 1;
    }
    return true;
}

uint64_t lowMask(uint32_t length) { return length >= 64 ? ~uint64_t{0} : (uint64_t{1} << length) - 1; }

int64_t signExtend(uint64_t raw, uint32_t length) {
    if (length >= 64) return static_cast<int64_t>(raw);
    uint64_t sign = uint64_t{1} << (length - 1);
    return static_cast<int64_t>((raw ^ sign) - sign);
}

}  // namespace

uint64_t extractRaw(const Signal& signal, const uint8_t* data, size_t size) {
    uint64_t raw = 0;
    if (!walkBits(signal, size, [&](size_t byte, unsigned bit) { raw = (raw << 1) | ((data[byte] >> bit) & 1u); }))
        return 0;
    return raw;
}

bool insertRaw(const Signal& signal, uint64_t raw, uint8_t* data, size_t size) {
    if (!walkBits(signal, size, [](size_t, unsigned) {})) return false;
    uint32_t i = signal.length;
    walkBits(signal, size, [&](size_t byte, unsigned bit) {
        --i;
        uint8_t mask = static_cast<uint8_t>(1u << bit);
        if ((raw >> i) & 1u) data[byte] |= mask;
        else data[byte] &= static_cast<uint8_t>(~mask);
    });
    return true;
}

double rawToPhysical(const Signal& signal, uint64_t raw) {
    if (signal.valueType == ValueType::Integer && signal.decimalScale >= 0) {
        // Exact in integers when it fits, then one rounding.
        static const double kPow10[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8,
                                        1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17};
        uint64_t bits = raw & lowMask(signal.length);
        int64_t v = signal.isSigned ? signExtend(bits, signal.length)
                                    : static_cast<int64_t>(bits);
        bool small = signal.isSigned || bits <= static_cast<uint64_t>(INT64_MAX);
        int64_t f = signal.factorUnits;
        constexpr int64_t kLimit = INT64_MAX / 2;
        if (small && (f == 0 || (v <= kLimit / (f < 0 ? -f : f) && v >= -kLimit / (f < 0 ? -f : f))))
            return static_cast<double>(v * f + signal.offsetUnits) / kPow10[signal.decimalScale];
    }
    double value;
    if (signal.valueType == ValueType::Float32) {
        uint32_t bits = static_cast<uint32_t>(raw);
        float f;
        std::memcpy(&f, &bits, sizeof f);
        value = f;
    } else if (signal.valueType == ValueType::Float64) {
        std::memcpy(&value, &raw, sizeof value);
    } else if (signal.isSigned) {
        value = static_cast<double>(signExtend(raw & lowMask(signal.length), signal.length));
    } else {
        value = static_cast<double>(raw & lowMask(signal.length));
    }
    return value * signal.factor + signal.offset;
}

uint64_t physicalToRaw(uint32_t length, double physical, double factor, double offset, int valueType) {
    if (length == 0 || length > 64) return 0;
    double scaled = factor != 0.0 ? (physical - offset) / factor : 0.0;
    if (valueType == 2) {
        float f = static_cast<float>(scaled);
        uint32_t bits;
        std::memcpy(&bits, &f, sizeof bits);
        return bits;
    }
    if (valueType == 3) {
        uint64_t bits;
        std::memcpy(&bits, &scaled, sizeof bits);
        return bits;
    }
    if (std::isnan(scaled)) return 0;
    double r = std::nearbyint(scaled);
    if (valueType == 1) {
        double lo = -std::ldexp(1.0, static_cast<int>(length) - 1);
        double hi = std::ldexp(1.0, static_cast<int>(length) - 1) - 1;
        if (r < lo) r = lo;
        if (r > hi) r = hi;
        int64_t v = r >= 9.2233720368547748e18 ? std::numeric_limits<int64_t>::max()
                                                : static_cast<int64_t>(r);
        return static_cast<uint64_t>(v) & lowMask(length);
    }
    double hi = std::ldexp(1.0, static_cast<int>(length)) - 1;
    if (r < 0) r = 0;
    if (r >= 1.8446744073709552e19) return lowMask(length);
    if (r > hi) r = hi;
    return static_cast<uint64_t>(r);
}

uint64_t physicalToRaw(const Signal& signal, double physical) {
    int type = signal.valueType == ValueType::Float32   ? 2
               : signal.valueType == ValueType::Float64 ? 3
               : signal.isSigned                        ? 1
                                                        : 0;
    return physicalToRaw(signal.length, physical, signal.factor, signal.offset, type);
}

void decodeMessage(const Message& message, const uint8_t* data, size_t size,
                   std::vector<DecodedSignal>& out) {
    out.clear();
    const size_t n = message.signals.size();
    // 0 unknown, 1 present, 2 absent, 3 being resolved (a switch cycle counts as absent).
    std::vector<uint8_t> state(n, 0);
    std::vector<uint64_t> raws(n, 0);
    auto indexOf = [&](const std::string& name) -> size_t {
        for (size_t i = 0; i < n; ++i)
            if (message.signals[i].name == name) return i;
        return n;
    };
    // Switches may switch switches; a chain deeper than any real database counts as absent,
    // so that hostile text cannot exhaust the stack.
    constexpr int kMaxDepth = 64;
    auto resolve = [&](size_t i, int depth, auto& self) -> bool {
        if (state[i] == 1) return true;
        if (state[i] != 0) return false;
        if (depth > kMaxDepth) return false;
        const Signal& s = message.signals[i];
        state[i] = 3;
        bool present = true;
        if (!s.muxSwitch.empty()) {
            size_t sw = indexOf(s.muxSwitch);
            present = sw < n && self(sw, depth + 1, self);
            if (present) {
                present = false;
                for (const auto& r : s.muxRanges)
                    if (raws[sw] >= r.first && raws[sw] <= r.second) present = true;
            }
        }
        // A frame shorter than the message lacks the signals beyond its end.
        if (present) present = walkBits(s, size, [](size_t, unsigned) {});
        if (present) raws[i] = extractRaw(s, data, size);
        state[i] = present ? 1 : 2;
        return present;
    };
    for (size_t i = 0; i < n; ++i)
        if (resolve(i, 0, resolve))
            out.push_back({&message.signals[i], raws[i], rawToPhysical(message.signals[i], raws[i])});
}

bool encodeSignal(const Signal& signal, double physical, uint8_t* data, size_t size) {
    return insertRaw(signal, physicalToRaw(signal, physical), data, size);
}

}  // namespace hostbridge::dbc
