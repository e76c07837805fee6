#include "apps/ruvo/can_log.h"

#include <cctype>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <stdexcept>

namespace canlog {

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool parseHexBytes(const std::string& text, std::vector<uint8_t>& out) {
    if (text.size() % 2 != 0) return false;
    out.clear();
    for (size_t i = 0; i < text.size(); i += 2) {
        const int hi = hexValue(text[i]), lo = hexValue(text[i + 1]);
        if (hi < 0 || lo < 0) return false;
        out.push_back(static_cast<uint8_t>(hi << 4 | lo));
    }
    return true;
}

// "(1436509052.249713) vcan0 044#2A366C2BBA", "… 123##1AABB" (CAN FD, flags nibble),
// "… 123#R" (remote). False for an error frame; raises for a malformed line.
bool parseCandump(const std::string& line, Frame& f) {
    const size_t close = line.find(')');
    if (line.empty() || line[0] != '(' || close == std::string::npos) throw std::runtime_error("no (time)");
    f = Frame{};
    try {
        f.time = std::stod(line.substr(1, close - 1));
    } catch (const std::exception&) {
        throw std::runtime_error("bad time");
    }
    size_t pos = close + 1;
    while (pos < line.size() && line[pos] == ' ') ++pos;
    const size_t space = line.find(' ', pos);
    if (space == std::string::npos) throw std::runtime_error("no frame after the interface");
    f.channel = line.substr(pos, space - pos);
    pos = space + 1;
    while (pos < line.size() && line[pos] == ' ') ++pos;
    std::string frame = line.substr(pos, line.find(' ', pos) - pos);
    const size_t hash = frame.find('#');
    if (hash == std::string::npos || hash == 0) throw std::runtime_error("no id#data");
    const std::string idText = frame.substr(0, hash);
    for (char c : idText) {
        if (hexValue(c) < 0) throw std::runtime_error("bad id");
    }
    const unsigned long id = std::stoul(idText, nullptr, 16);
    if (id & 0x20000000ul) return false;  // error frame
    f.extended = idText.size() > 3;
    f.id = static_cast<uint32_t>(id & 0x1FFFFFFFul);
    std::string rest = frame.substr(hash + 1);
    if (!rest.empty() && rest[0] == '#') {
        if (rest.size() < 2 || hexValue(rest[1]) < 0) throw std::runtime_error("bad CAN FD flags");
        f.fd = true;
        const int flags = hexValue(rest[1]);
        f.brs = flags & 1;
        f.esi = flags & 2;
        rest = rest.substr(2);
    } else if (!rest.empty() && (rest[0] == 'R' || rest[0] == 'r')) {
        f.remote = true;
        return true;
    }
    if (!parseHexBytes(rest, f.data) || f.data.size() > 64) throw std::runtime_error("bad data");
    return true;
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
        if (f.remote) return line + "R";
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

const Format& formatFor(const std::string& path) {
    const size_t dot = path.rfind('.');
    const std::string suffix = dot == std::string::npos ? std::string() : path.substr(dot);
    const auto it = registry().find(suffix);
    if (it == registry().end()) {
        throw std::runtime_error(path + ": no CAN log format for \"" + suffix + "\" (known: .log)");
    }
    return it->second;
}

}  // namespace

ReadResult read(const std::string& path) {
    const Format& format = formatFor(path);
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot read " + path);
    ReadResult result;
    std::string line;
    size_t number = 0;
    while (std::getline(in, line)) {
        ++number;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty()) continue;
        Frame f;
        try {
            if (format.parse(line, f)) {
                result.frames.push_back(std::move(f));
            } else {
                ++result.skipped;
            }
        } catch (const std::exception& e) {
            throw std::runtime_error(path + ":" + std::to_string(number) + ": " + e.what() + ": " + line);
        }
    }
    return result;
}

std::string formatLine(const std::string& suffix, const Frame& frame) {
    return formatFor("x" + suffix).format(frame);
}

void write(const std::string& path, const std::vector<Frame>& frames) {
    const Format& format = formatFor(path);
    std::ofstream out(path, std::ios::trunc);
    if (!out) throw std::runtime_error("cannot write " + path);
    for (const auto& f : frames) out << format.format(f) << '\n';
    if (!out) throw std::runtime_error("cannot write " + path);
}

std::vector<std::string> formats() {
    std::vector<std::string> out;
    for (const auto& entry : registry()) out.push_back(entry.first);
    return out;
}

int channelNumber(const std::string& name) {
    size_t i = name.size();
    while (i > 0 && std::isdigit(static_cast<unsigned char>(name[i - 1]))) --i;
    return i == name.size() ? 0 : std::stoi(name.substr(i));
}

}  // namespace canlog
