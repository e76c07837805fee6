#include "apps/ruvo/can_log.h"

#include <charconv>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>

namespace canlog {

namespace {

// Why a line was refused; read() adds file and line.
struct BadLine : std::runtime_error {
    using std::runtime_error::runtime_error;
};

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// A piece of the line for a message: quoted, control and non-ASCII bytes escaped, cut short,
// so that a hostile file cannot write escape sequences to the terminal.
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

std::vector<std::string> splitBlanks(const std::string& line) {
    std::vector<std::string> tokens;
    size_t pos = 0;
    while (pos < line.size()) {
        while (pos < line.size() && (line[pos] == ' ' || line[pos] == '\t')) ++pos;
        if (pos == line.size()) break;
        size_t end = pos;
        while (end < line.size() && line[end] != ' ' && line[end] != '\t') ++end;
        tokens.push_back(line.substr(pos, end - pos));
        pos = end;
    }
    return tokens;
}

// "(1700000000.000250)": digits, optionally a point and up to nine more. No sign, exponent,
// "inf" or "nan"; at most kMaxTime, so that microseconds fit in 64 bits. Read locale-free and
// correctly rounded, so that what formatLine writes reads back as the same value.
double parseTime(const std::string& token) {
    const std::string bad = "bad time stamp " + shown(token) + ": expected seconds such as (1700000000.000250)";
    if (token.size() < 3 || token.front() != '(' || token.back() != ')') throw BadLine(bad);
    const std::string text = token.substr(1, token.size() - 2);
    const size_t point = text.find('.');
    const size_t wholeDigits = point == std::string::npos ? text.size() : point;
    const size_t fractionDigits = point == std::string::npos ? 0 : text.size() - point - 1;
    if (wholeDigits == 0 || (point != std::string::npos && (fractionDigits == 0 || fractionDigits > 9))) {
        throw BadLine(bad);
    }
    for (size_t i = 0; i < text.size(); ++i) {
        if (i != point && !isDigit(text[i])) throw BadLine(bad);
    }
    double seconds = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), seconds, std::chars_format::fixed);
    if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size()) throw BadLine(bad);
    if (seconds > kMaxTime) throw BadLine("time stamp " + shown(token) + " is too large");
    return seconds;
}

// Letters first, then letters, digits, '_' or '-', ending in the channel number: "can0",
// "vcan3", "slcan0". 15 characters at most, as an interface name.
void checkChannel(const std::string& name) {
    const std::string bad = "bad channel name " + shown(name) + ": expected an interface name such as can0";
    if (name.empty() || name.size() > 15 || !isLetter(name[0])) throw BadLine(bad);
    for (char c : name) {
        if (!isLetter(c) && !isDigit(c) && c != '_' && c != '-') throw BadLine(bad);
    }
    size_t i = name.size();
    while (i > 0 && isDigit(name[i - 1])) --i;
    if (i == name.size()) throw BadLine(bad + " (no channel number)");
    long number = 0;
    for (size_t k = i; k < name.size(); ++k) {
        number = number * 10 + (name[k] - '0');
        if (number > kMaxChannel) break;
    }
    if (number > kMaxChannel) {
        throw BadLine("channel " + shown(name) + ": number out of range 0.." + std::to_string(kMaxChannel));
    }
}

void parseHexBytes(const std::string& text, std::vector<uint8_t>& out) {
    for (char c : text) {
        if (hexValue(c) < 0) throw BadLine("bad data " + shown(text) + ": hex digits only");
    }
    if (text.size() % 2 != 0) throw BadLine("bad data " + shown(text) + ": odd number of hex digits");
    out.clear();
    out.reserve(text.size() / 2);
    for (size_t i = 0; i < text.size(); i += 2) {
        out.push_back(static_cast<uint8_t>(hexValue(text[i]) << 4 | hexValue(text[i + 1])));
    }
}

bool validFdLength(size_t n) {
    return n <= 8 || n == 12 || n == 16 || n == 20 || n == 24 || n == 32 || n == 48 || n == 64;
}

constexpr uint32_t kErrorFlag = 0x20000000;

// "(1436509052.249713) vcan0 044#2A366C2BBA", "… 123##1AABB" (CAN FD, flags nibble),
// "… 123#R" / "… 123#R5" (remote), an optional "R" or "T" (direction, as python-can writes it;
// every frame is replayed as received). False for an error frame; raises BadLine otherwise.
bool parseCandump(const std::string& line, Frame& f) {
    const std::vector<std::string> tokens = splitBlanks(line);
    if (tokens.size() < 3 || tokens.size() > 4) throw BadLine("expected (TIME) CHANNEL ID#DATA");
    if (tokens.size() == 4 && tokens[3] != "R" && tokens[3] != "T" && tokens[3] != "r" && tokens[3] != "t") {
        throw BadLine("unexpected " + shown(tokens[3]) + " after the frame (only R or T may follow)");
    }
    f = Frame{};
    f.time = parseTime(tokens[0]);
    checkChannel(tokens[1]);
    f.channel = tokens[1];

    const std::string& frame = tokens[2];
    const size_t hash = frame.find('#');
    if (hash == std::string::npos) throw BadLine("bad frame " + shown(frame) + ": expected ID#DATA");
    const std::string idText = frame.substr(0, hash);
    bool hexOnly = true;
    for (char c : idText) hexOnly = hexOnly && hexValue(c) >= 0;
    if (!hexOnly || (idText.size() != 3 && idText.size() != 8)) {
        throw BadLine("bad id " + shown(idText) + ": expected 3 hex digits (11 bits) or 8 (29 bits)");
    }
    uint32_t id = 0;
    for (char c : idText) id = id << 4 | static_cast<uint32_t>(hexValue(c));
    const bool error = idText.size() == 8 && (id & kErrorFlag) != 0;
    if (idText.size() == 3 && id > 0x7FF) throw BadLine("bad id " + shown(idText) + ": above 7FF (11 bits)");
    if (idText.size() == 8 && id > (error ? 0x3FFFFFFFu : 0x1FFFFFFFu)) {
        throw BadLine("bad id " + shown(idText) + ": above 1FFFFFFF (29 bits)");
    }
    f.extended = idText.size() == 8;
    f.id = id & 0x1FFFFFFF;

    std::string rest = frame.substr(hash + 1);
    if (!rest.empty() && rest[0] == '#') {
        const int flags = rest.size() < 2 ? -1 : hexValue(rest[1]);
        // 1 bit rate switch, 2 error state indicator, 4 the FD format bit newer writers add.
        if (flags < 0 || flags > 7) {
            throw BadLine("bad CAN FD flags " + shown(rest.substr(0, 2)) + ": expected ## and one digit 0-7");
        }
        f.fd = true;
        f.brs = (flags & 1) != 0;
        f.esi = (flags & 2) != 0;
        parseHexBytes(rest.substr(2), f.data);
        if (!validFdLength(f.data.size())) {
            throw BadLine("CAN FD frame with " + std::to_string(f.data.size()) +
                          " data bytes (allowed: 0-8, 12, 16, 20, 24, 32, 48, 64)");
        }
    } else if (!rest.empty() && (rest[0] == 'R' || rest[0] == 'r')) {
        f.remote = true;
        if (rest.size() > 2 || (rest.size() == 2 && (rest[1] < '0' || rest[1] > '8'))) {
            throw BadLine("bad remote frame " + shown(rest) + ": expected R or R and a length 0-8");
        }
        if (rest.size() == 2) f.remoteLength = static_cast<uint8_t>(rest[1] - '0');
    } else {
        parseHexBytes(rest, f.data);
        if (f.data.size() > 8) {
            throw BadLine("classic frame with " + std::to_string(f.data.size()) + " data bytes (allowed: 0-8)");
        }
    }
    return !error;
}

std::string candumpLine(const Frame& f) {
    char head[64];
    std::snprintf(head, sizeof(head), f.extended ? "(%.6f) %s %08X" : "(%.6f) %s %03X", f.time,
                  f.channel.c_str(), f.id);
    std::string line = head;
    if (f.fd) {
        line += "##";
        line += "0123456789ABCDEF"[(f.brs ? 1 : 0) | (f.esi ? 2 : 0)];
    } else {
        line += "#";
        if (f.remote) {
            line += "R";
            if (f.remoteLength > 0) line += std::to_string(f.remoteLength);
            return line;
        }
    }
    char byte[3];
    for (uint8_t b : f.data) {
        std::snprintf(byte, sizeof(byte), "%02X", b);
        line += byte;
    }
    return line;
}

struct Format {
    std::function<bool(const std::string&, Frame&)> parse;
    std::function<std::string(const Frame&)> format;
};

const std::map<std::string, Format>& registry() {
    static const std::map<std::string, Format> formats = {
        {".log", Format{parseCandump, candumpLine}},
    };
    return formats;
}

std::string suffixOf(const std::string& path) {
    const size_t dot = path.rfind('.');
    const size_t slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return std::string();
    return path.substr(dot);
}

const Format& formatFor(const std::string& suffix, const std::string& path) {
    const auto it = registry().find(suffix);
    if (it == registry().end()) {
        throw std::runtime_error(path + ": no CAN log format for \"" + suffix + "\" (known: .log)");
    }
    return it->second;
}

// One line into `line`, at most kMaxLineLength characters of it; false at the end of input.
bool nextLine(std::istream& in, std::string& line, bool& tooLong) {
    line.clear();
    tooLong = false;
    std::streambuf* buffer = in.rdbuf();
    if (buffer == nullptr) return false;
    bool any = false;
    for (int c = buffer->sbumpc(); c != std::char_traits<char>::eof(); c = buffer->sbumpc()) {
        any = true;
        if (c == '\n') return true;
        if (line.size() < kMaxLineLength) {
            line.push_back(static_cast<char>(c));
        } else {
            tooLong = true;
        }
    }
    return any;
}

}  // namespace

LogError::LogError(const std::string& file_, size_t line_, const std::string& reason_)
    : std::runtime_error(file_ + ":" + std::to_string(line_) + ": " + reason_),
      file(file_),
      line(line_),
      reason(reason_) {}

ReadResult read(std::istream& in, const std::string& suffix, const std::string& shownName) {
    const Format& format = formatFor(suffix, shownName);
    ReadResult result;
    // One name per channel number, so that what the applets send on a channel goes out under
    // the name its frames came in with.
    std::map<int, std::pair<std::string, size_t>> channels;
    double latest = 0;
    std::string line;
    bool tooLong = false;
    size_t number = 0;
    while (nextLine(in, line, tooLong)) {
        ++number;
        if (tooLong) {
            throw LogError(shownName, number, "line longer than " + std::to_string(kMaxLineLength) + " characters");
        }
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) line.pop_back();
        if (line.find_first_not_of(" \t") == std::string::npos) continue;
        Frame f;
        bool isFrame = false;
        try {
            isFrame = format.parse(line, f);
        } catch (const BadLine& e) {
            throw LogError(shownName, number, e.what());
        }
        if (!isFrame) {
            ++result.skipped;
            continue;
        }
        const int channel = channelNumber(f.channel);
        const auto known = channels.emplace(channel, std::make_pair(f.channel, number)).first;
        if (known->second.first != f.channel) {
            throw LogError(shownName, number,
                           "channel " + shown(f.channel) + " and " + shown(known->second.first) + " (line " +
                               std::to_string(known->second.second) + ") are both channel " +
                               std::to_string(channel));
        }
        if (!result.frames.empty() && f.time < latest) ++result.outOfOrder;
        if (result.frames.empty() || f.time > latest) latest = f.time;
        result.frames.push_back(std::move(f));
    }
    if (in.bad()) throw std::runtime_error("cannot read " + shownName);
    return result;
}

ReadResult read(const std::string& path, const std::string& shownName) {
    const std::string name = shownName.empty() ? path : shownName;
    const std::string suffix = suffixOf(path);
    formatFor(suffix, name);
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + name);
    return read(in, suffix, name);
}

std::string formatLine(const std::string& suffix, const Frame& frame) {
    return formatFor(suffix, "x" + suffix).format(frame);
}

std::string formatOf(const std::string& path) {
    const std::string suffix = suffixOf(path);
    formatFor(suffix, path);
    return suffix;
}

void write(const std::string& path, const std::vector<Frame>& frames) {
    const Format& format = formatFor(suffixOf(path), path);
    std::ofstream out(path, std::ios::trunc);
    if (!out) throw std::runtime_error("cannot write " + path);
    for (const auto& f : frames) out << format.format(f) << '\n';
    out.flush();
    if (!out) throw std::runtime_error("cannot write " + path);
}

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
