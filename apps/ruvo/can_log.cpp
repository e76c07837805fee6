#include "apps/ruvo/can_log.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <map>

#include "apps/ruvo/log_format.h"
#include "platform/file_sync.h"

namespace canlog {

namespace detail {

std::string shown(const std::string& text) {
    std::string out = "\"";
    for (size_t i = 0; i < text.size() && i < 40; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c < 0x20 || c >= 0x7F || c == '"' || c == '\\') {
            char esc[5];
            std::snprintf(esc, sizeof(esc), "\\x%02X", c);
            out += esc;
        } else {
            out += static_cast<char>(c);
        }
    }
    if (text.size() > 40) out += "...";
    return out + "\"";
}

bool validFdLength(size_t n) {
    return n <= 8 || n == 12 || n == 16 || n == 20 || n == 24 || n == 32 || n == 48 || n == 64;
}

size_t fdLength(unsigned dlc) {
    static const size_t lengths[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
    return lengths[dlc & 15];
}

unsigned fdCode(size_t length) {
    for (unsigned code = 0; code < 16; ++code) {
        if (fdLength(code) >= length) return code;
    }
    return 15;
}

void checkFrame(const Frame& f) {
    if (f.id > (f.extended ? 0x1FFFFFFFu : 0x7FFu)) {
        char text[16];
        std::snprintf(text, sizeof(text), "%X", f.id);
        throw BadRecord(std::string("id ") + text + (f.extended ? " is above 1FFFFFFF (29 bits)" : " is above 7FF (11 bits)"));
    }
    if (f.error) {
        if (f.data.size() > 8) throw BadRecord("error frame with " + std::to_string(f.data.size()) + " data bytes (at most 8)");
        return;
    }
    if (f.remote) {
        if (f.fd) throw BadRecord("a remote frame cannot be a CAN FD frame");
        if (!f.data.empty() || f.remoteLength > 8) throw BadRecord("remote frame asking for more than 8 bytes");
        return;
    }
    if (!f.fd && (f.brs || f.esi)) throw BadRecord("bit rate switch or error state flag on a classic frame");
    if (!f.fd && f.data.size() > 8) {
        throw BadRecord("classic frame with " + std::to_string(f.data.size()) + " data bytes (allowed: 0-8)");
    }
    if (f.fd && !validFdLength(f.data.size())) {
        throw BadRecord("CAN FD frame with " + std::to_string(f.data.size()) +
                        " data bytes (allowed: 0-8, 12, 16, 20, 24, 32, 48, 64)");
    }
}

const std::string& channelName(int number) {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (int n = 0; n <= kMaxChannel; ++n) all.push_back("can" + std::to_string(n));
        return all;
    }();
    return names.at(static_cast<size_t>(number));
}

int64_t microseconds(double seconds) { return std::llround(seconds * 1e6); }

int64_t startMilliseconds(double earliest) {
    const int64_t us = microseconds(earliest < 0 ? 0 : earliest);
    return us / 1000;
}

bool LineReader::next(std::string& line) {
    for (;;) {
        const char* start = buffer_.data() + begin_;
        const char* newline = static_cast<const char*>(std::memchr(start, '\n', end_ - begin_));
        if (newline != nullptr || (eof_ && end_ > begin_)) {
            const size_t length = newline != nullptr ? static_cast<size_t>(newline - start) : end_ - begin_;
            ++number_;
            if (length > limit_) throw BadRecord("line longer than " + std::to_string(limit_) + " characters");
            line.assign(start, length);
            begin_ += length + (newline != nullptr ? 1 : 0);
            while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) line.pop_back();
            return true;
        }
        if (eof_) return false;
        // No line end in what is buffered: a line over the limit is refused before more of it
        // is read; otherwise the rest moves to the front and the next chunk follows it.
        if (end_ - begin_ > limit_) {
            ++number_;
            throw BadRecord("line longer than " + std::to_string(limit_) + " characters");
        }
        std::memmove(buffer_.data(), start, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        std::streambuf* source = in_.rdbuf();
        const std::streamsize got =
            source == nullptr ? 0 : source->sgetn(buffer_.data() + end_, static_cast<std::streamsize>(buffer_.size() - end_));
        if (got <= 0) {
            eof_ = true;
            in_.setstate(std::ios::eofbit);
        } else {
            end_ += static_cast<size_t>(got);
        }
    }
}

}  // namespace detail

namespace {

using detail::shown;

struct HexTable {
    int8_t value[256];
    HexTable() {
        for (int c = 0; c < 256; ++c) value[c] = -1;
        for (int d = 0; d < 10; ++d) value['0' + d] = static_cast<int8_t>(d);
        for (int d = 0; d < 6; ++d) value['a' + d] = value['A' + d] = static_cast<int8_t>(10 + d);
    }
};
const HexTable kHex;

int hexValue(char c) { return kHex.value[static_cast<unsigned char>(c)]; }

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// Up to 5 blank-separated tokens of a line, without copying.
struct Tokens {
    const char* begin[5];
    size_t size[5];
    size_t count = 0;
    std::string str(size_t i) const { return std::string(begin[i], size[i]); }
};

Tokens splitBlanks(const std::string& line) {
    Tokens t;
    size_t pos = 0;
    while (pos < line.size() && t.count < 5) {
        while (pos < line.size() && (line[pos] == ' ' || line[pos] == '\t')) ++pos;
        if (pos == line.size()) break;
        size_t end = pos;
        while (end < line.size() && line[end] != ' ' && line[end] != '\t') ++end;
        t.begin[t.count] = line.data() + pos;
        t.size[t.count] = end - pos;
        ++t.count;
        pos = end;
    }
    return t;
}

// "(1700000000.000250)": digits, optionally a point and up to nine more. No sign, exponent,
// "inf" or "nan"; at most kMaxTime, so that microseconds fit in 64 bits. Read locale-free and
// correctly rounded, so that what formatLine writes reads back as the same value.
double parseTime(const char* p, size_t n) {
    const auto bad = [&] {
        return BadRecord("bad time stamp " + shown(std::string(p, n)) + ": expected seconds such as (1700000000.000250)");
    };
    if (n < 3 || p[0] != '(' || p[n - 1] != ')') throw bad();
    const char* text = p + 1;
    const size_t size = n - 2;
    size_t point = size;
    for (size_t i = 0; i < size; ++i) {
        if (text[i] == '.' && point == size) {
            point = i;
        } else if (!isDigit(text[i])) {
            throw bad();
        }
    }
    const size_t fractionDigits = point == size ? 0 : size - point - 1;
    if (point == 0 || (point != size && (fractionDigits == 0 || fractionDigits > 9))) throw bad();
    double seconds = 0;
    const auto parsed = std::from_chars(text, text + size, seconds, std::chars_format::fixed);
    if (parsed.ec != std::errc() || parsed.ptr != text + size) throw bad();
    if (seconds > kMaxTime) throw BadRecord("time stamp " + shown(std::string(p, n)) + " is too large");
    return seconds;
}

// Letters first, then letters, digits, '_' or '-', ending in the channel number: "can0",
// "vcan3", "slcan0". 15 characters at most, as an interface name.
void checkChannel(const std::string& name) {
    const auto bad = [&](const char* more) {
        return BadRecord("bad channel name " + shown(name) + ": expected an interface name such as can0" + more);
    };
    if (name.empty() || name.size() > 15 || !isLetter(name[0])) throw bad("");
    for (char c : name) {
        if (!isLetter(c) && !isDigit(c) && c != '_' && c != '-') throw bad("");
    }
    size_t i = name.size();
    while (i > 0 && isDigit(name[i - 1])) --i;
    if (i == name.size()) throw bad(" (no channel number)");
    long number = 0;
    for (size_t k = i; k < name.size(); ++k) {
        number = number * 10 + (name[k] - '0');
        if (number > kMaxChannel) break;
    }
    if (number > kMaxChannel) {
        throw BadRecord("channel " + shown(name) + ": number out of range 0.." + std::to_string(kMaxChannel));
    }
}

void parseHexBytes(const char* text, size_t n, std::vector<uint8_t>& out) {
    uint8_t bytes[64];
    int bad = 0;
    const size_t pairs = std::min<size_t>(n / 2, sizeof(bytes));
    for (size_t i = 0; i < pairs; ++i) {
        const int high = hexValue(text[2 * i]), low = hexValue(text[2 * i + 1]);
        bad |= high | low;
        bytes[i] = static_cast<uint8_t>((high & 15) << 4 | (low & 15));  // checked below
    }
    for (size_t i = 2 * pairs; i < n; ++i) bad |= hexValue(text[i]);
    if (bad < 0) throw BadRecord("bad data " + shown(std::string(text, n)) + ": hex digits only");
    if (n % 2 != 0) throw BadRecord("bad data " + shown(std::string(text, n)) + ": odd number of hex digits");
    if (n / 2 > sizeof(bytes)) {
        out.assign(n / 2, 0);  // too long for any frame; refused by the caller
        return;
    }
    out.assign(bytes, bytes + pairs);
}

constexpr uint32_t kErrorFlag = 0x20000000;
constexpr uint32_t kBusError = 0x80;  // the error class python-can marks its error frames with

// "(1436509052.249713) vcan0 044#2A366C2BBA", "… 123##1AABB" (CAN FD, flags nibble),
// "… 123#R" / "… 123#R5" (remote), an optional "R" or "T" (direction). Raises BadRecord.
void parseCandump(const std::string& line, Frame& f) {
    const Tokens tokens = splitBlanks(line);
    if (tokens.count < 3 || tokens.count > 4) throw BadRecord("expected (TIME) CHANNEL ID#DATA");
    f = Frame{};
    if (tokens.count == 4) {
        const char d = tokens.size[3] == 1 ? tokens.begin[3][0] : '?';
        if (d != 'R' && d != 'T' && d != 'r' && d != 't') {
            throw BadRecord("unexpected " + shown(tokens.str(3)) + " after the frame (only R or T may follow)");
        }
        f.tx = d == 'T' || d == 't';
    }
    f.time = parseTime(tokens.begin[0], tokens.size[0]);
    f.channel.assign(tokens.begin[1], tokens.size[1]);
    checkChannel(f.channel);

    const char* frame = tokens.begin[2];
    const size_t frameSize = tokens.size[2];
    const char* hash = static_cast<const char*>(std::memchr(frame, '#', frameSize));
    if (hash == nullptr) throw BadRecord("bad frame " + shown(tokens.str(2)) + ": expected ID#DATA");
    const size_t idSize = static_cast<size_t>(hash - frame);
    bool hexOnly = true;
    for (size_t i = 0; i < idSize; ++i) hexOnly = hexOnly && hexValue(frame[i]) >= 0;
    if (!hexOnly || (idSize != 3 && idSize != 8)) {
        throw BadRecord("bad id " + shown(std::string(frame, idSize)) + ": expected 3 hex digits (11 bits) or 8 (29 bits)");
    }
    uint32_t id = 0;
    for (size_t i = 0; i < idSize; ++i) id = id << 4 | static_cast<uint32_t>(hexValue(frame[i]));
    const bool error = idSize == 8 && (id & kErrorFlag) != 0;
    if (idSize == 3 && id > 0x7FF) throw BadRecord("bad id " + shown(std::string(frame, idSize)) + ": above 7FF (11 bits)");
    if (idSize == 8 && id > (error ? 0x3FFFFFFFu : 0x1FFFFFFFu)) {
        throw BadRecord("bad id " + shown(std::string(frame, idSize)) + ": above 1FFFFFFF (29 bits)");
    }
    f.extended = idSize == 8;
    f.error = error;
    f.id = id & 0x1FFFFFFF;

    const char* rest = hash + 1;
    const size_t restSize = frameSize - idSize - 1;
    if (restSize > 0 && rest[0] == '#') {
        const int flags = restSize < 2 ? -1 : hexValue(rest[1]);
        // 1 bit rate switch, 2 error state indicator, 4 the FD format bit newer writers add.
        if (flags < 0 || flags > 7) {
            throw BadRecord("bad CAN FD flags " + shown(std::string(rest, std::min<size_t>(restSize, 2))) +
                            ": expected ## and one digit 0-7");
        }
        f.fd = true;
        f.brs = (flags & 1) != 0;
        f.esi = (flags & 2) != 0;
        parseHexBytes(rest + 2, restSize - 2, f.data);
        if (!detail::validFdLength(f.data.size())) {
            throw BadRecord("CAN FD frame with " + std::to_string(f.data.size()) +
                            " data bytes (allowed: 0-8, 12, 16, 20, 24, 32, 48, 64)");
        }
    } else if (restSize > 0 && (rest[0] == 'R' || rest[0] == 'r')) {
        f.remote = true;
        if (restSize > 2 || (restSize == 2 && (rest[1] < '0' || rest[1] > '8'))) {
            throw BadRecord("bad remote frame " + shown(std::string(rest, restSize)) + ": expected R or R and a length 0-8");
        }
        if (restSize == 2) f.remoteLength = static_cast<uint8_t>(rest[1] - '0');
    } else {
        parseHexBytes(rest, restSize, f.data);
        if (f.data.size() > 8) {
            throw BadRecord("classic frame with " + std::to_string(f.data.size()) + " data bytes (allowed: 0-8)");
        }
    }
    if (f.error) {
        f.remote = f.fd = f.brs = f.esi = f.tx = false;
        f.remoteLength = 0;
    }
}

// A format registered by suffix: its reader, its writer, and its line for text formats.
struct Format {
    void (*read)(std::istream&, const std::string&, const detail::RecordSink&);
    bool binary;
};

const std::map<std::string, Format>& registry() {
    static const std::map<std::string, Format> formats = {
        {".asc", Format{detail::readAsc, false}},
        {".blf", Format{detail::readBlf, true}},
        {".log", Format{detail::readCandump, false}},
    };
    return formats;
}

std::string knownSuffixes() {
    std::string known;
    for (const auto& entry : registry()) known += (known.empty() ? "" : ", ") + entry.first;
    return known;
}

std::string lower(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

// Where the directory part of `path` ends: Windows paths arrive with backslashes.
size_t lastSeparator(const std::string& path) { return path.find_last_of("/\\"); }

std::string suffixOf(const std::string& path) {
    const size_t dot = path.rfind('.');
    const size_t slash = lastSeparator(path);
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return std::string();
    return path.substr(dot);
}

// The registered suffix for a suffix in any case.
std::string registered(const std::string& suffix, const std::string& path) {
    const std::string key = lower(suffix);
    if (registry().count(key) == 0) {
        throw std::runtime_error(path + ": no CAN log format for \"" + suffix + "\" (known: " + knownSuffixes() + ")");
    }
    return key;
}

std::string hexByte(uint8_t b) {
    static const char digits[] = "0123456789ABCDEF";
    return std::string{digits[b >> 4], digits[b & 15]};
}

class CandumpWriter : public FormatWriter {
public:
    CandumpWriter(std::FILE* out, bool flushEachFrame) : out_(out), flush_(flushEachFrame) {}
    void write(const Frame& f) override {
        line_ = detail::candumpLine(f);
        line_ += '\n';
        if (std::fwrite(line_.data(), 1, line_.size(), out_) != line_.size() || (flush_ && std::fflush(out_) != 0)) {
            throw std::runtime_error(std::strerror(errno));
        }
    }
    void finish() override {}

private:
    std::FILE* out_;
    bool flush_;
    std::string line_;
};

}  // namespace

namespace detail {

std::string candumpLine(const Frame& f) {
    char head[64];
    if (f.error) {
        std::snprintf(head, sizeof(head), "(%.6f) %s %08X#", f.time, f.channel.c_str(),
                      kErrorFlag | (f.id != 0 ? f.id : kBusError));
        std::string line = head;
        for (uint8_t b : f.data) line += hexByte(b);
        return line;
    }
    std::snprintf(head, sizeof(head), f.extended ? "(%.6f) %s %08X" : "(%.6f) %s %03X", f.time, f.channel.c_str(), f.id);
    std::string line = head;
    if (f.fd) {
        line += "##";
        line += "0123456789ABCDEF"[(f.brs ? 1 : 0) | (f.esi ? 2 : 0)];
    } else {
        line += "#";
        if (f.remote) {
            line += "R";
            if (f.remoteLength > 0) line += std::to_string(f.remoteLength);
        }
    }
    if (!f.remote) {
        for (uint8_t b : f.data) line += hexByte(b);
    }
    if (f.tx) line += " T";
    return line;
}

void readCandump(std::istream& in, const std::string& shownName, const RecordSink& sink) {
    // One name per channel number, so that what the applets send on a channel goes out under
    // the name its frames came in with.
    std::pair<std::string, size_t> channels[kMaxChannel + 1];
    LineReader lines(in, kMaxLineLength);
    std::string line;
    for (;;) {
        Frame f;
        try {
            if (!lines.next(line)) break;
            if (line.find_first_not_of(" \t") == std::string::npos) continue;
            parseCandump(line, f);
        } catch (const BadRecord& e) {
            throw LogError(shownName, lines.number(), e.what());
        }
        if (!f.error) {
            const int channel = channelNumber(f.channel);
            auto& known = channels[channel];
            if (known.first.empty()) known = std::make_pair(f.channel, lines.number());
            if (known.first != f.channel) {
                throw LogError(shownName, lines.number(),
                               "channel " + shown(f.channel) + " and " + shown(known.first) + " (line " +
                                   std::to_string(known.second) + ") are both channel " + std::to_string(channel));
            }
        }
        sink.add(std::move(f));
    }
    if (in.bad()) throw std::runtime_error("cannot read " + shownName);
}

std::unique_ptr<FormatWriter> candumpWriter(std::FILE* out, bool flushEachFrame) {
    return std::make_unique<CandumpWriter>(out, flushEachFrame);
}

}  // namespace detail

LogError::LogError(const std::string& file_, size_t line_, const std::string& reason_)
    : std::runtime_error(file_ + ":" + std::to_string(line_) + ": " + reason_),
      file(file_),
      line(line_),
      position(std::to_string(line_)),
      reason(reason_) {}

LogError::LogError(const std::string& file_, const std::string& position_, const std::string& reason_)
    : std::runtime_error(file_ + ":" + position_ + ": " + reason_),
      file(file_),
      line(0),
      position(position_),
      reason(reason_) {}

ReadResult read(std::istream& in, const std::string& suffix, const std::string& shownName, bool keepErrorFrames) {
    const Format& format = registry().at(registered(suffix, shownName));
    ReadResult result;
    // Room for the frames up front, as far as the size of the input vouches for them: a text
    // line is 40 bytes or more, a compressed binary record rarely under 4.
    size_t size = 0;
    const auto here = in.tellg();
    if (here != std::istream::pos_type(-1) && in.seekg(0, std::ios::end)) {
        size = static_cast<size_t>(in.tellg() - here);
        in.seekg(here);
    }
    in.clear();
    if (!format.binary) result.frames.reserve(size / 40);
    double latest = 0;
    detail::RecordSink sink;
    sink.expect = [&](size_t count) { result.frames.reserve(std::min(count, size / 4)); };
    sink.add = [&](Frame&& f) {
        if (f.error) {
            ++result.skipped;
            if (!keepErrorFrames) return;
        }
        if (!result.frames.empty() && f.time < latest) ++result.outOfOrder;
        if (result.frames.empty() || f.time > latest) latest = f.time;
        result.frames.push_back(std::move(f));
    };
    format.read(in, shownName, sink);
    return result;
}

ReadResult read(const std::string& path, const std::string& shownName, bool keepErrorFrames) {
    const std::string name = shownName.empty() ? path : shownName;
    const std::string suffix = registered(suffixOf(path), name);
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + name);
    return read(in, suffix, name, keepErrorFrames);
}

Writer::Writer(const std::string& path, bool flushEachFrame, double earliest) : name_(path) {
    const std::string suffix = registered(suffixOf(path), path);
    file_ = std::fopen(path.c_str(), "wb");
    if (file_ == nullptr) throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
    owned_ = true;
    if (suffix == ".blf") {
        format_ = detail::blfWriter(file_, earliest);
    } else if (suffix == ".asc") {
        format_ = detail::ascWriter(file_, flushEachFrame, earliest);
    } else {
        format_ = detail::candumpWriter(file_, flushEachFrame);
    }
}

Writer::Writer(std::FILE* out, const std::string& suffix, bool flushEachFrame) : file_(out), name_("stdout") {
    const std::string key = registered(suffix, "stdout");
    if (key == ".blf") {
        format_ = detail::blfWriter(out, -1);
    } else {
        format_ = key == ".asc" ? detail::ascWriter(out, flushEachFrame, -1) : detail::candumpWriter(out, flushEachFrame);
    }
}

Writer::~Writer() {
    if (owned_ && file_ != nullptr) std::fclose(file_);
}

void Writer::write(const Frame& frame) {
    if (format_ == nullptr) throw std::runtime_error("cannot write " + name_ + ": the log is finished");
    try {
        format_->write(frame);
    } catch (const std::exception& e) {
        throw std::runtime_error("cannot write " + name_ + ": " + e.what());
    }
}

void Writer::finish() {
    if (format_ == nullptr) return;
    try {
        format_->finish();
        format_.reset();
        if (owned_) {
            std::FILE* f = file_;
            file_ = nullptr;
            if (std::fclose(f) != 0) throw std::runtime_error(std::strerror(errno));
        } else if (std::fflush(file_) != 0) {
            throw std::runtime_error(std::strerror(errno));
        }
    } catch (const std::exception& e) {
        format_.reset();
        throw std::runtime_error("cannot write " + name_ + ": " + e.what());
    }
}

void write(const std::string& path, const std::vector<Frame>& frames) {
    registered(suffixOf(path), path);
    double earliest = -1;
    for (const auto& f : frames) {
        if (earliest < 0 || f.time < earliest) earliest = f.time;
    }
    // Same suffix, so that the temporary file is written in the same format.
    const size_t slash = lastSeparator(path);
    const std::string dir = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    const std::string temporary = dir + ".part-" + path.substr(dir.size());
    try {
        Writer out(temporary, false, earliest);
        for (const auto& f : frames) out.write(f);
        out.finish();
    } catch (const std::runtime_error& e) {
        std::remove(temporary.c_str());
        std::string reason = e.what();
        const std::string prefix = "cannot write " + temporary + ": ";
        if (reason.compare(0, prefix.size(), prefix) == 0) reason = reason.substr(prefix.size());
        throw std::runtime_error("cannot write " + path + ": " + reason);
    }
    if (const int error = platform::replaceFile(temporary, path)) {
        const std::string reason = platform::errorText(error);
        std::remove(temporary.c_str());
        throw std::runtime_error("cannot write " + path + ": " + reason);
    }
}

std::string formatLine(const std::string& suffix, const Frame& frame) {
    const std::string key = registered(suffix, "x" + suffix);
    if (key == ".blf") throw std::runtime_error("BLF is a binary format: no lines");
    if (key == ".asc") return detail::ascLine(frame, 0);
    return detail::candumpLine(frame);
}

std::string formatOf(const std::string& path) { return registered(suffixOf(path), path); }

std::vector<std::string> formats() {
    std::vector<std::string> out;
    for (const auto& entry : registry()) out.push_back(entry.first);
    return out;
}

int channelNumber(const std::string& name) {
    size_t i = name.size();
    while (i > 0 && isDigit(name[i - 1])) --i;
    long number = 0;
    for (size_t k = i; k < name.size(); ++k) {
        number = number * 10 + (name[k] - '0');
        if (number > kMaxChannel) return 0;
    }
    return static_cast<int>(number);
}

}  // namespace canlog
