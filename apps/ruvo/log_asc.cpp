// The ASCII trace format: a header ("date", "base hex  timestamps absolute", "internal events
// logged", "Begin Triggerblock DATE"), then one event a line, stamped in seconds from the start
// the header names, and "End TriggerBlock". Frame lines are checked in full; other events
// (statistics, chip states, comments, "Start of measurement") are passed over.

#include <cerrno>
#include <cstring>
#include <ctime>

#include "apps/ruvo/log_format.h"
#include "platform/local_time.h"

namespace canlog {
namespace detail {

namespace {

struct Token {
    const char* p = nullptr;
    size_t n = 0;
    std::string str() const { return std::string(p, n); }
    bool is(const char* word) const {  // any case
        const size_t size = std::strlen(word);
        if (size != n) return false;
        for (size_t i = 0; i < n; ++i) {
            char c = p[i];
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
            if (c != word[i]) return false;
        }
        return true;
    }
};

// At most 100 tokens: a CAN FD line has 64 data bytes and 13 other columns.
struct Tokens {
    Token t[100];
    size_t count = 0;
};

void split(const std::string& line, Tokens& out) {
    out.count = 0;
    size_t pos = 0;
    while (pos < line.size()) {
        while (pos < line.size() && (line[pos] == ' ' || line[pos] == '\t')) ++pos;
        if (pos == line.size()) break;
        size_t end = pos;
        while (end < line.size() && line[end] != ' ' && line[end] != '\t') ++end;
        if (out.count == 100) throw BadRecord("more than 100 columns");
        out.t[out.count++] = Token{line.data() + pos, end - pos};
        pos = end;
    }
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool allDigits(const Token& t) {
    if (t.n == 0) return false;
    for (size_t i = 0; i < t.n; ++i) {
        if (!isDigit(t.p[i])) return false;
    }
    return true;
}

int digitValue(char c, int base) {
    int v = -1;
    if (c >= '0' && c <= '9') v = c - '0';
    if (c >= 'a' && c <= 'f') v = c - 'a' + 10;
    if (c >= 'A' && c <= 'F') v = c - 'A' + 10;
    return v < base ? v : -1;
}

// A number in `base`, at most `max`; raises BadRecord naming `what`.
uint32_t number(const Token& t, int base, uint32_t max, const char* what) {
    if (t.n == 0 || t.n > 10) throw BadRecord(std::string("bad ") + what + " " + shown(t.str()));
    uint64_t v = 0;
    for (size_t i = 0; i < t.n; ++i) {
        const int d = digitValue(t.p[i], base);
        if (d < 0) throw BadRecord(std::string("bad ") + what + " " + shown(t.str()));
        v = v * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
    }
    if (v > max) throw BadRecord(std::string(what) + " " + shown(t.str()) + " out of range");
    return static_cast<uint32_t>(v);
}

// "0.000250": seconds with up to nine decimals, as whole microseconds (rounded).
bool parseOffset(const Token& t, int64_t& us) {
    size_t i = 0;
    int64_t whole = 0;
    while (i < t.n && isDigit(t.p[i])) {
        if (i >= 11) return false;
        whole = whole * 10 + (t.p[i] - '0');
        ++i;
    }
    if (i == 0 || i == t.n || t.p[i] != '.') return false;
    ++i;
    const size_t first = i;
    int64_t fraction = 0;  // nanoseconds
    while (i < t.n && isDigit(t.p[i])) {
        if (i - first >= 9) return false;
        fraction = fraction * 10 + (t.p[i] - '0');
        ++i;
    }
    if (i != t.n || i == first) return false;
    for (size_t k = i - first; k < 9; ++k) fraction *= 10;
    us = whole * 1000000 + (fraction + 500) / 1000;
    return true;
}

const char* const kMonths[] = {"jan", "feb", "mar", "apr", "may", "jun", "jul", "aug", "sep", "oct", "nov", "dec"};
const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

int monthOf(const Token& t) {
    for (int m = 0; m < 12; ++m) {
        if (t.is(kMonths[m])) return m;
    }
    // The German names that differ, as German installations write them.
    if (t.is("mai")) return 4;
    if (t.is("okt")) return 9;
    if (t.is("dez")) return 11;
    if (t.n == 4 && (std::memcmp(t.p, "M\xC3\xA4r", 4) == 0 || std::memcmp(t.p, "m\xC3\xA4r", 4) == 0)) return 2;
    return -1;
}

// "Tue Nov 14 10:13:20.000 PM 2023", "Thu Jan  1 00:02:46 1970" (tokens from `from`), local
// time, as whole milliseconds since the epoch.
int64_t parseDate(const Tokens& t, size_t from) {
    const size_t left = t.count - from;
    if (left != 5 && left != 6) throw BadRecord("bad date: expected such as \"Tue Nov 14 10:13:20.000 PM 2023\"");
    const Token& month = t.t[from + 1];
    const Token& day = t.t[from + 2];
    const Token& clock = t.t[from + 3];
    const Token& year = t.t[from + left - 1];
    std::tm tm{};
    tm.tm_mon = monthOf(month);
    if (tm.tm_mon < 0) throw BadRecord("bad month " + shown(month.str()));
    tm.tm_mday = static_cast<int>(number(day, 10, 31, "day"));
    tm.tm_year = static_cast<int>(number(year, 10, 9999, "year")) - 1900;
    int hms[3] = {0, 0, 0};
    int ms = 0;
    size_t i = 0;
    for (int part = 0; part < 3; ++part) {
        const size_t first = i;
        while (i < clock.n && isDigit(clock.p[i]) && i - first < 2) hms[part] = hms[part] * 10 + (clock.p[i++] - '0');
        if (i == first) throw BadRecord("bad time of day " + shown(clock.str()));
        if (part < 2) {
            if (i == clock.n || clock.p[i] != ':') throw BadRecord("bad time of day " + shown(clock.str()));
            ++i;
        }
    }
    if (i < clock.n) {
        if (clock.p[i] != '.' || i + 1 == clock.n) throw BadRecord("bad time of day " + shown(clock.str()));
        size_t digits = 0;
        for (++i; i < clock.n; ++i, ++digits) {
            if (!isDigit(clock.p[i]) || digits >= 6) throw BadRecord("bad time of day " + shown(clock.str()));
            if (digits < 3) ms = ms * 10 + (clock.p[i] - '0');
        }
        for (; digits < 3; ++digits) ms *= 10;
    }
    if (left == 6) {
        const Token& half = t.t[from + 4];
        if (hms[0] < 1 || hms[0] > 12 || (!half.is("am") && !half.is("pm"))) {
            throw BadRecord("bad time of day " + shown(clock.str() + " " + half.str()));
        }
        hms[0] = hms[0] % 12 + (half.is("pm") ? 12 : 0);
    }
    if (hms[0] > 23 || hms[1] > 59 || hms[2] > 60) throw BadRecord("bad time of day " + shown(clock.str()));
    tm.tm_hour = hms[0];
    tm.tm_min = hms[1];
    tm.tm_sec = hms[2];
    tm.tm_isdst = -1;
    std::time_t seconds = 0;
    if (!platform::timeOfLocal(tm, seconds)) throw BadRecord("bad date");
    if (seconds < 0 || static_cast<double>(seconds) > kMaxTime) throw BadRecord("date out of range");
    return static_cast<int64_t>(seconds) * 1000 + ms;
}

std::string formatDate(int64_t ms) {
    const std::time_t seconds = static_cast<std::time_t>(ms / 1000);
    std::tm tm{};
    platform::localTime(seconds, tm);
    const int hour12 = tm.tm_hour % 12 == 0 ? 12 : tm.tm_hour % 12;
    static const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char text[64];
    std::snprintf(text, sizeof(text), "%s %s %02d %02d:%02d:%02d.%03d %s %d", kDays[tm.tm_wday % 7],
                  months[tm.tm_mon % 12], tm.tm_mday, hour12, tm.tm_min, tm.tm_sec, static_cast<int>(ms % 1000),
                  tm.tm_hour < 12 ? "AM" : "PM", tm.tm_year + 1900);
    return text;
}

int channelOf(const Token& t) {
    const uint32_t n = number(t, 10, 1000, "channel");
    if (n < 1 || n > static_cast<uint32_t>(kMaxChannel) + 1) {
        throw BadRecord("channel " + shown(t.str()) + " out of range 1.." + std::to_string(kMaxChannel + 1));
    }
    return static_cast<int>(n) - 1;
}

void parseId(const Token& t, int base, Frame& f) {
    Token digits = t;
    f.extended = t.n > 1 && (t.p[t.n - 1] == 'x' || t.p[t.n - 1] == 'X');
    if (f.extended) --digits.n;
    f.id = number(digits, base, f.extended ? 0x1FFFFFFF : 0x7FF, "id");
}

bool direction(const Token& t, Frame& f) {
    if (t.is("rx")) {
        f.tx = false;
        return true;
    }
    if (t.is("tx") || t.is("txrq")) {
        f.tx = true;
        return true;
    }
    return false;
}

// Data bytes from `t.t[from]`; returns the index after them.
size_t parseData(const Tokens& t, size_t from, size_t count, int base, Frame& f) {
    if (from + count > t.count) {
        throw BadRecord("expected " + std::to_string(count) + " data bytes, found " + std::to_string(t.count - from));
    }
    f.data.resize(count);
    for (size_t i = 0; i < count; ++i) f.data[i] = static_cast<uint8_t>(number(t.t[from + i], base, 255, "data byte"));
    return from + count;
}

// What may follow a classic frame's data: "Length = 228000 BitCount = 117 ID = 291x".
void checkTrailer(const Tokens& t, size_t from) {
    for (size_t i = from; i < t.count; i += 3) {
        if (i + 2 >= t.count || !(t.t[i + 1].n == 1 && t.t[i + 1].p[0] == '=')) {
            throw BadRecord("unexpected " + shown(t.t[i].str()) + " after the data");
        }
    }
}

struct AscState {
    int base = 16;
    bool relative = false;  // "timestamps relative": each stamp counts from the one before
    int64_t startUs = 0;
    int64_t previousUs = 0;
};

// "0.000250 1  123  Rx   d 2 11 22" and its remote form "… r 8"; tokens after the channel.
void parseClassic(const Tokens& t, const AscState& s, Frame& f) {
    parseId(t.t[2], s.base, f);
    direction(t.t[3], f);
    if (t.count < 5) throw BadRecord("expected d or r after the direction");
    if (t.t[4].is("r")) {
        f.remote = true;
        size_t next = 5;
        if (t.count > 5 && t.t[5].n == 1 && digitValue(t.t[5].p[0], s.base) >= 0) {
            f.remoteLength = static_cast<uint8_t>(number(t.t[5], s.base, 15, "length code"));
            if (f.remoteLength > 8) f.remoteLength = 8;
            next = 6;
        }
        checkTrailer(t, next);
        return;
    }
    if (!t.t[4].is("d")) throw BadRecord("expected d or r, found " + shown(t.t[4].str()));
    if (t.count < 6) throw BadRecord("expected a length code after d");
    const uint32_t dlc = number(t.t[5], s.base, 15, "length code");
    checkTrailer(t, parseData(t, 6, dlc > 8 ? 8 : dlc, s.base, f));
}

// "CANFD 1 Rx 1BB36010x [NAME] BRS ESI DLC LENGTH DATA... [DURATION LEN FLAGS CRC TIMING...]"
void parseFd(const Tokens& t, const AscState& s, Frame& f) {
    if (t.count < 5) throw BadRecord("expected CANFD CHANNEL DIRECTION ID ...");
    f.channel = channelName(channelOf(t.t[2]));
    if (!direction(t.t[3], f)) throw BadRecord("expected Rx or Tx, found " + shown(t.t[3].str()));
    if (t.t[4].is("errorframe")) {
        f.error = true;
        f.tx = false;
        return;
    }
    parseId(t.t[4], s.base, f);
    size_t i = 5;
    if (i < t.count && !allDigits(t.t[i])) ++i;  // the symbolic name
    if (i + 4 > t.count) throw BadRecord("expected BRS ESI DLC LENGTH after the id");
    const uint32_t brs = number(t.t[i], 10, 1, "bit rate switch");
    const uint32_t esi = number(t.t[i + 1], 10, 1, "error state indicator");
    const uint32_t dlc = number(t.t[i + 2], s.base, 15, "length code");
    const uint32_t length = number(t.t[i + 3], 10, 64, "data length");
    const size_t after = parseData(t, i + 4, length, s.base, f);
    // Then duration, frame length, flags and CRC, all numbers; the flags say whether this
    // was a CAN FD frame (0x1000) and a remote one (0x10). Without them, it was CAN FD.
    const size_t extra = t.count - after;
    if (extra > 8) throw BadRecord("unexpected " + shown(t.t[after + 8].str()) + " after the frame");
    for (size_t k = after; k < t.count; ++k) number(t.t[k], 16, 0xFFFFFFFF, "column");
    const uint32_t flags = extra >= 3 ? number(t.t[after + 2], 16, 0xFFFFFFFF, "flags") : 0x1000;
    f.fd = (flags & 0x1000) != 0;
    if (!f.fd && (flags & 0x10) != 0) {
        if (length != 0) throw BadRecord("remote frame with data");
        f.remote = true;
        f.remoteLength = static_cast<uint8_t>(dlc > 8 ? 8 : dlc);
    } else if (f.fd) {
        f.brs = brs != 0;
        f.esi = esi != 0;
        if (fdLength(dlc) != length) {
            throw BadRecord("length code " + t.t[i + 2].str() + " stands for " + std::to_string(fdLength(dlc)) +
                            " bytes, the line has " + std::to_string(length));
        }
    } else if (brs != 0 || esi != 0) {
        throw BadRecord("bit rate switch or error state flag on a classic frame");
    } else if (length > 8 || (dlc <= 8 && dlc != length)) {
        throw BadRecord("classic frame with length code " + t.t[i + 2].str() + " and " + std::to_string(length) + " bytes");
    }
}

// True for a frame or an error frame, false for an event we pass over.
bool parseEvent(const Tokens& t, AscState& s, Frame& f) {
    int64_t offset = 0;
    if (!parseOffset(t.t[0], offset)) throw BadRecord("bad time stamp " + shown(t.t[0].str()));
    if (t.count < 3) return false;
    if (t.t[1].is("canfd")) {
        parseFd(t, s, f);
    } else if (allDigits(t.t[1])) {
        const int channel = channelOf(t.t[1]);
        if (t.t[2].is("errorframe")) {
            f.error = true;
        } else if (t.count >= 4 && (t.t[3].is("rx") || t.t[3].is("tx") || t.t[3].is("txrq"))) {
            parseClassic(t, s, f);
        } else {
            return false;  // statistics and other per-channel events
        }
        f.channel = channelName(channel);
    } else {
        return false;
    }
    const int64_t us = (s.relative ? s.previousUs : s.startUs) + offset;
    if (static_cast<double>(us) > kMaxTime * 1e6) throw BadRecord("time stamp " + shown(t.t[0].str()) + " is too large");
    s.previousUs = us;
    f.time = static_cast<double>(us) / 1e6;
    checkFrame(f);
    return true;
}

}  // namespace

void readAsc(std::istream& in, const std::string& shownName, const RecordSink& sink) {
    LineReader lines(in, kMaxAscLineLength);
    std::string line;
    Tokens t;
    AscState state;
    for (;;) {
        Frame f;
        try {
            if (!lines.next(line)) break;
            split(line, t);
            if (t.count == 0 || (t.t[0].n >= 2 && t.t[0].p[0] == '/' && t.t[0].p[1] == '/')) continue;
            const Token& first = t.t[0];
            if (isDigit(first.p[0])) {
                if (!parseEvent(t, state, f)) continue;
            } else if (first.is("date")) {
                if (t.count < 2) throw BadRecord("bad date");
                state.startUs = parseDate(t, 1) * 1000;
                state.previousUs = state.startUs;
                continue;
            } else if (first.is("base")) {
                if (t.count < 2 || !(t.t[1].is("hex") || t.t[1].is("dec"))) throw BadRecord("expected base hex or base dec");
                state.base = t.t[1].is("hex") ? 16 : 10;
                if (t.count == 4 && t.t[2].is("timestamps") && (t.t[3].is("absolute") || t.t[3].is("relative"))) {
                    state.relative = t.t[3].is("relative");
                } else if (t.count != 2) {
                    throw BadRecord("expected base hex|dec timestamps absolute|relative");
                }
                continue;
            } else if (first.is("begin")) {
                if (t.count < 2 || !t.t[1].is("triggerblock")) throw BadRecord("expected Begin Triggerblock");
                if (t.count > 2) {
                    state.startUs = parseDate(t, 2) * 1000;
                    state.previousUs = state.startUs;
                }
                continue;
            } else if (first.is("end")) {
                if (t.count != 2 || !t.t[1].is("triggerblock")) throw BadRecord("expected End TriggerBlock");
                continue;
            } else if ((first.is("internal") || first.is("no")) && line.find("events logged") != std::string::npos) {
                continue;
            } else {
                throw BadRecord("not an ASC line: " + shown(line));
            }
        } catch (const BadRecord& e) {
            throw LogError(shownName, lines.number(), e.what());
        }
        sink.add(std::move(f));
    }
    if (in.bad()) throw std::runtime_error("cannot read " + shownName);
}

std::string ascLine(const Frame& f, double start) {
    const int64_t offset = microseconds(f.time) - microseconds(start);
    if (offset < 0) {
        throw std::runtime_error("frame at " + std::to_string(f.time) + " s is before the start of the log");
    }
    char head[48];
    std::snprintf(head, sizeof(head), "%4lld.%06lld ", static_cast<long long>(offset / 1000000),
                  static_cast<long long>(offset % 1000000));
    std::string line = head;
    const int channel = channelNumber(f.channel) + 1;
    char id[16];
    std::snprintf(id, sizeof(id), f.extended ? "%Xx" : "%X", f.id);
    const char* dir = f.tx ? "Tx" : "Rx";
    char text[160];
    if (f.error) {
        std::snprintf(text, sizeof(text), "%d  ErrorFrame", channel);
        return line + text;
    }
    if (f.fd) {
        std::snprintf(text, sizeof(text), "CANFD %3d %-4s %8s  %32s %d %d %x %2zu", channel, dir, id, "", f.brs ? 1 : 0,
                      f.esi ? 1 : 0, fdCode(f.data.size()), f.data.size());
    } else if (f.remote) {
        std::snprintf(text, sizeof(text), "%d  %-15s %-4s r %x", channel, id, dir, f.remoteLength);
        return line + text;
    } else {
        std::snprintf(text, sizeof(text), "%d  %-15s %-4s d %zx", channel, id, dir, f.data.size());
    }
    line += text;
    static const char digits[] = "0123456789ABCDEF";
    for (uint8_t b : f.data) {
        line += ' ';
        line += digits[b >> 4];
        line += digits[b & 15];
    }
    if (f.fd) {
        std::snprintf(text, sizeof(text), " %8d %4d %8X %8d %8d %8d %8d %8d", 0, 0,
                      0x1000 | (f.brs ? 0x2000 : 0) | (f.esi ? 0x4000 : 0), 0, 0, 0, 0, 0);
        line += text;
    }
    return line;
}

namespace {

class AscWriter : public FormatWriter {
public:
    AscWriter(std::FILE* out, bool flushEachFrame, double earliest) : out_(out), flush_(flushEachFrame) {
        if (earliest >= 0) begin(earliest);
    }
    void write(const Frame& f) override {
        if (!begun_) begin(f.time);
        std::string line = ascLine(f, start_) + "\n";
        put(line);
    }
    void finish() override {
        if (!begun_) begin(0);
        put("End TriggerBlock\n");
    }

private:
    void begin(double earliest) {
        begun_ = true;
        const int64_t ms = startMilliseconds(earliest);
        start_ = static_cast<double>(ms) / 1000;
        const std::string date = formatDate(ms);
        put("date " + date + "\nbase hex  timestamps absolute\ninternal events logged\nBegin Triggerblock " + date +
            "\n   0.000000 Start of measurement\n");
    }
    void put(const std::string& text) {
        if (std::fwrite(text.data(), 1, text.size(), out_) != text.size() || (flush_ && std::fflush(out_) != 0)) {
            throw std::runtime_error(std::strerror(errno));
        }
    }

    std::FILE* out_;
    bool flush_;
    bool begun_ = false;
    double start_ = 0;
};

}  // namespace

std::unique_ptr<FormatWriter> ascWriter(std::FILE* out, bool flushEachFrame, double earliest) {
    return std::make_unique<AscWriter>(out, flushEachFrame, earliest);
}

}  // namespace detail
}  // namespace canlog
