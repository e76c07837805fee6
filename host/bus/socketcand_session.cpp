#include "host/bus/socketcand_session.h"

#include <cinttypes>
#include <cstdio>
#include <utility>

namespace hostbridge {
namespace socketcand {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::vector<std::string> splitWords(const std::string& text) {
    std::vector<std::string> words;
    std::string word;
    for (char c : text) {
        if (isBlank(c)) {
            if (!word.empty()) words.push_back(std::move(word));
            word.clear();
        } else {
            word += c;
        }
    }
    if (!word.empty()) words.push_back(std::move(word));
    return words;
}

// 1..maxDigits hex digits, nothing else.
bool parseHex(const std::string& text, size_t maxDigits, uint32_t& value) {
    if (text.empty() || text.size() > maxDigits) return false;
    value = 0;
    for (char c : text) {
        int digit;
        if (c >= '0' && c <= '9') digit = c - '0';
        else if (c >= 'a' && c <= 'f') digit = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
        else return false;
        value = value * 16 + static_cast<uint32_t>(digit);
    }
    return true;
}

bool isCanLength(uint32_t length) {
    if (length <= 8) return true;
    for (uint32_t fd : {12u, 16u, 20u, 24u, 32u, 48u, 64u}) {
        if (length == fd) return true;
    }
    return false;
}

std::string printable(const std::string& text) {
    std::string shown = text.substr(0, 40);
    return text.size() > 40 ? shown + "..." : shown;
}

}  // namespace

std::string formatFrame(const Frame& frame, uint64_t timestampUs) {
    static const char kHex[] = "0123456789ABCDEF";
    char head[64];
    const int n = std::snprintf(head, sizeof head, frame.extended ? "< frame %08" PRIX32 " " : "< frame %03" PRIX32 " ",
                                frame.id);
    std::string text(head, static_cast<size_t>(n));
    const int m = std::snprintf(head, sizeof head, "%" PRIu64 ".%06" PRIu64 " ", timestampUs / 1000000,
                                timestampUs % 1000000);
    text.append(head, static_cast<size_t>(m));
    const size_t length = frame.length <= 64 ? frame.length : 64;
    for (size_t i = 0; i < length; ++i) {
        text += kHex[frame.data[i] >> 4];
        text += kHex[frame.data[i] & 0xF];
    }
    text += " >";
    return text;
}

std::string busName(int channel) { return "can" + std::to_string(channel); }

int channelOfBusName(const std::string& name, const std::vector<int>& channels) {
    if (name.size() < 4 || name.size() > 6 || name.compare(0, 3, "can") != 0) return -1;
    const std::string digits = name.substr(3);
    if (digits.size() > 1 && digits[0] == '0') return -1;
    int channel = 0;
    for (char c : digits) {
        if (c < '0' || c > '9') return -1;
        channel = channel * 10 + (c - '0');
    }
    for (int known : channels) {
        if (known == channel) return channel;
    }
    return -1;
}

Session::Session(BusResolver resolver, Limits limits)
    : resolver_(std::move(resolver)), limits_(limits), tokens_(limits.burst) {}

void Session::fail(Output& out, std::string reason) {
    dropped_ = true;
    out.drop = true;
    out.reason = std::move(reason);
}

void Session::feed(const char* data, size_t size, uint64_t nowUs, Output& out) {
    for (size_t i = 0; i < size && !dropped_; ++i) {
        const char c = data[i];
        if (!inMessage_) {
            if (isBlank(c)) {
                // Blanks between messages are fine; an endless stream of them is not.
                if (++blanks_ > kMaxMessageLength) {
                    fail(out, "more than " + std::to_string(kMaxMessageLength) + " blanks between messages");
                    return;
                }
                continue;
            }
            blanks_ = 0;
            if (c != '<') {
                char reason[64];
                std::snprintf(reason, sizeof reason, "byte 0x%02X outside a message",
                              static_cast<unsigned char>(c));
                fail(out, reason);
                return;
            }
            inMessage_ = true;
            message_.clear();
            continue;
        }
        if (c == '>') {
            inMessage_ = false;
            // Every message costs a token, refilled at the allowed rate.
            if (clockStarted_ && nowUs > lastUs_) {
                tokens_ += static_cast<double>(nowUs - lastUs_) * limits_.messagesPerSecond / 1e6;
                if (tokens_ > limits_.burst) tokens_ = limits_.burst;
            }
            clockStarted_ = true;
            lastUs_ = nowUs;
            if (tokens_ < 1) {
                char reason[96];
                std::snprintf(reason, sizeof reason, "flooding: more than %.0f messages per second",
                              limits_.messagesPerSecond);
                fail(out, reason);
                return;
            }
            tokens_ -= 1;
            handle(message_, out);
            continue;
        }
        if (c == '<' || (static_cast<unsigned char>(c) < 0x20 && !isBlank(c)) ||
            static_cast<unsigned char>(c) > 0x7E) {
            char reason[64];
            std::snprintf(reason, sizeof reason, "byte 0x%02X inside a message", static_cast<unsigned char>(c));
            fail(out, reason);
            return;
        }
        // Counting "<" and ">" too.
        if (message_.size() + 2 >= kMaxMessageLength) {
            fail(out, "message longer than " + std::to_string(kMaxMessageLength) + " bytes");
            return;
        }
        message_ += c;
    }
}

void Session::handle(const std::string& message, Output& out) {
    const std::vector<std::string> words = splitWords(message);
    if (words.empty()) return fail(out, "empty message");
    const std::string& command = words[0];

    if (command == "send") {
        if (words.size() < 3) return fail(out, "bad send: < " + printable(message) + " >");
        uint32_t id = 0, length = 0;
        if (!parseHex(words[1], 8, id)) return fail(out, "bad send id: " + printable(words[1]));
        if (id > 0x1FFFFFFF) return fail(out, "send id out of range: " + words[1]);
        if (!parseHex(words[2], 2, length)) return fail(out, "bad send length: " + printable(words[2]));
        if (!isCanLength(length)) return fail(out, "send length out of range: " + words[2]);
        if (words.size() - 3 != length) {
            return fail(out, "send length " + words[2] + " with " + std::to_string(words.size() - 3) + " data bytes");
        }
        Frame frame;
        frame.id = id;
        frame.extended = words[1].size() == 8 || id > 0x7FF;
        frame.fd = length > 8;
        frame.length = static_cast<uint8_t>(length);
        for (uint32_t i = 0; i < length; ++i) {
            uint32_t byte = 0;
            if (!parseHex(words[3 + i], 2, byte)) return fail(out, "bad send data: " + printable(words[3 + i]));
            frame.data[i] = static_cast<uint8_t>(byte);
        }
        if (mode_ == Mode::Closed) {
            out.replies.push_back("< error no bus open >");
            return;
        }
        out.frames.push_back(frame);
        return;
    }
    if (command == "open") {
        if (words.size() != 2) return fail(out, "bad open: < " + printable(message) + " >");
        if (mode_ != Mode::Closed) {
            out.replies.push_back("< error bus already open >");
            return;
        }
        const int channel = resolver_ ? resolver_(words[1]) : -1;
        if (channel < 0) {
            out.replies.push_back("< error unknown bus >");
            return;
        }
        channel_ = channel;
        mode_ = Mode::Bcm;
        out.replies.push_back("< ok >");
        return;
    }
    if (command == "rawmode" || command == "bcmmode") {
        if (words.size() != 1) return fail(out, "bad " + command + ": < " + printable(message) + " >");
        if (mode_ == Mode::Closed) {
            out.replies.push_back("< error no bus open >");
            return;
        }
        mode_ = command == "rawmode" ? Mode::Raw : Mode::Bcm;
        out.replies.push_back("< ok >");
        return;
    }
    if (command == "echo" && words.size() == 1) {
        out.replies.push_back("< echo >");
        return;
    }
    // Modes and commands this server does not offer (broadcast manager jobs, ISO-TP, control).
    out.replies.push_back("< error unknown command >");
}

}  // namespace socketcand
}  // namespace hostbridge
