// DBC text reader: a cursor over the whole text that knows the line it is on, one function per
// statement keyword; statements we do not use are skipped up to their ';'.

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <unordered_map>

#include "host/dbc/dbc_database.h"
#include "host/dbc/dbc_names.h"

namespace hostbridge::dbc {

const Signal* Message::findSignal(const std::string& signalName) const {
    for (const Signal& s : signals)
        if (s.name == signalName) return &s;
    for (const Signal& s : signals)
        if (s.codeName == signalName) return &s;
    return nullptr;
}

const Message* Database::findMessage(uint32_t messageId, bool isExtended) const {
    for (const Message& m : messages)
        if (m.id == messageId && m.extended == isExtended) return &m;
    return nullptr;
}

const Message* Database::findMessage(const std::string& messageName) const {
    for (const Message& m : messages)
        if (m.name == messageName) return &m;
    return nullptr;
}

namespace {

constexpr size_t kMaxName = 1024;
constexpr uint32_t kExtendedFlag = 0x80000000u;
constexpr uint32_t kNoFrameId = 0xC0000000u;  // pseudo message holding signals of no frame

struct ParseError {
    size_t line;
    std::string reason;
};

bool isNameChar(char c) {
    unsigned char u = static_cast<unsigned char>(c);
    if (u <= ' ') return false;
    return std::strchr(":;,|@()[]\"", c) == nullptr;
}

class Cursor {
public:
    explicit Cursor(const std::string& text) : t_(text) {}

    [[noreturn]] void fail(const std::string& reason) const { throw ParseError{line_, reason}; }
    size_t line() const { return line_; }
    bool atEnd() const { return p_ >= t_.size(); }
    char peek() const { return atEnd() ? '\0' : t_[p_]; }

    void checkByte(char c) const {
        unsigned char u = static_cast<unsigned char>(c);
        if (u < 0x20 && c != '\t' && c != '\r' && c != '\n')
            fail("unexpected byte 0x" + hex(u));
    }
    static std::string hex(unsigned v) {
        const char* d = "0123456789abcdef";
        return std::string{d[(v >> 4) & 15], d[v & 15]};
    }

    // Blanks and, unless stopAtLine, line ends.
    void skipBlanks(bool stopAtLine = false) {
        while (!atEnd()) {
            char c = t_[p_];
            if (c == '\n') {
                if (stopAtLine) return;
                ++line_;
            } else if (c != ' ' && c != '\t' && c != '\r') {
                checkByte(c);
                return;
            }
            ++p_;
        }
    }
    bool atLineEnd() {
        skipBlanks(true);
        return atEnd() || peek() == '\n';
    }
    bool accept(char c) {
        skipBlanks();
        if (peek() != c) return false;
        ++p_;
        return true;
    }
    void expect(char c, const char* what) {
        if (!accept(c)) fail(std::string("expected '") + c + "' " + what);
    }
    bool nextIsName() {
        skipBlanks();
        return !atEnd() && isNameChar(peek());
    }
    std::string name(const char* what) {
        skipBlanks();
        size_t start = p_;
        while (!atEnd() && isNameChar(t_[p_])) {
            if (p_ - start >= kMaxName) fail(std::string(what) + " longer than 1024 characters");
            ++p_;
        }
        if (p_ == start) {
            if (atEnd()) fail(std::string("file ends where ") + what + " is expected");
            fail(std::string("expected ") + what);
        }
        return t_.substr(start, p_ - start);
    }
    // A number: digits, sign, point, exponent.
    std::string numberText(const char* what) {
        skipBlanks();
        size_t start = p_;
        if (peek() == '+' || peek() == '-') ++p_;
        while (!atEnd() && (std::isalnum(static_cast<unsigned char>(t_[p_])) || t_[p_] == '.' ||
                            ((t_[p_] == '+' || t_[p_] == '-') && (t_[p_ - 1] == 'e' || t_[p_ - 1] == 'E'))))
            ++p_;
        if (p_ == start) fail(std::string("expected a number for ") + what);
        return t_.substr(start, p_ - start);
    }
    std::string peekNumberText() {
        Cursor probe = *this;
        try {
            return probe.numberText("");
        } catch (const ParseError&) {
            return "";
        }
    }
    double number(const char* what) {
        std::string s = numberText(what);
        char* end = nullptr;
        errno = 0;
        double v = std::strtod(s.c_str(), &end);
        if (end != s.c_str() + s.size() || s.size() > 64 || !std::isfinite(v))
            fail(std::string("bad number '") + s.substr(0, 64) + "' for " + what);
        return v;
    }
    // Integers may be written with a fraction ("1.0") or be negative: check range.
    int64_t integer(const char* what, double lo, double hi) {
        double v = number(what);
        if (v != std::floor(v) || v < lo || v > hi)
            fail(std::string("bad ") + what + " " + std::to_string(v));
        return static_cast<int64_t>(v);
    }
    uint64_t unsignedInt(const char* what) {
        std::string s = numberText(what);
        if (s.empty() || s.size() > 20 || s.find_first_not_of("0123456789") != std::string::npos)
            fail(std::string("bad ") + what + " '" + s.substr(0, 64) + "'");
        errno = 0;
        uint64_t v = std::strtoull(s.c_str(), nullptr, 10);
        if (errno == ERANGE) fail(std::string(what) + " out of range");
        return v;
    }
    std::string quoted(const char* what) {
        skipBlanks();
        if (peek() != '"') fail(std::string("expected a quoted ") + what);
        size_t startLine = line_;
        ++p_;
        std::string out;
        while (true) {
            if (atEnd()) throw ParseError{startLine, std::string("unterminated ") + what};
            char c = t_[p_++];
            if (c == '"') break;
            if (c == '\0') fail("unexpected byte 0x00");
            if (c == '\n') ++line_;
            if (c == '\\' && !atEnd() && (t_[p_] == '"' || t_[p_] == '\\')) c = t_[p_++];
            if (c != '\r') out += c;
        }
        return out;
    }
    // Rest of a statement we do not use, up to its ';'.
    void skipStatement() {
        while (!atEnd()) {
            char c = peek();
            if (c == '"') {
                quoted("text");
                continue;
            }
            ++p_;
            if (c == ';') return;
            if (c == '\n') ++line_;
            else checkByte(c);
        }
    }
    void skipLine() {
        while (!atEnd() && t_[p_] != '\n') checkByte(t_[p_++]);
    }
    // Column of the cursor: 0 when at the start of a line.
    bool atLineStart() const { return p_ == 0 || t_[p_ - 1] == '\n'; }
    void advanceRaw() {
        if (t_[p_] == '\n') ++line_;
        ++p_;
    }

private:
    const std::string& t_;
    size_t p_ = 0;
    size_t line_ = 1;
};

class Reader {
public:
    Reader(const std::string& text, Database& db) : c_(text), db_(db) {}

    void run() {
        while (true) {
            c_.skipBlanks();
            if (c_.atEnd()) break;
            if (!c_.nextIsName()) c_.fail(std::string("unexpected character '") + c_.peek() + "'");
            std::string kw = c_.name("keyword");
            if (kw == "VERSION") db_.version = c_.quoted("version");
            else if (kw == "NS_") skipNewSymbols();
            else if (kw == "BS_") { c_.expect(':', "after BS_"); c_.skipLine(); }
            else if (kw == "BU_") nodes();
            else if (kw == "BO_") message();
            else if (kw == "SG_") c_.fail("signal outside a message");
            else if (kw == "CM_") comment();
            else if (kw == "BA_DEF_") attributeDefinition();
            else if (kw == "BA_DEF_DEF_") attributeDefault();
            else if (kw == "BA_") attribute();
            else if (kw == "VAL_TABLE_") valueTable();
            else if (kw == "VAL_") values();
            else if (kw == "SG_MUL_VAL_") extendedMux();
            else if (kw == "SIG_VALTYPE_") signalValueType();
            else if (kw.size() > 1 && kw.back() == '_' && std::isupper(static_cast<unsigned char>(kw[0])))
                c_.skipStatement();
            else
                c_.fail("unexpected '" + kw.substr(0, 64) + "'");
        }
        finish();
    }

private:
    Message& messageById(uint32_t rawId) {
        Message* m = findRaw(rawId);
        if (!m) c_.fail("no message with id " + std::to_string(rawId));
        return *m;
    }
    // The first message of an id, through an index so that statements after the messages
    // cost the same however many messages there are.
    Message* findRaw(uint32_t rawId) {
        const uint32_t key = (rawId & 0x1FFFFFFFu) | (rawId & kExtendedFlag);
        auto it = index_.find(key);
        return it == index_.end() ? nullptr : &db_.messages[it->second];
    }
    Signal& signalOf(Message& m, const std::string& name) {
        for (Signal& s : m.signals)
            if (s.name == name) return s;
        c_.fail("message " + m.name + " has no signal " + name);
    }
    uint32_t messageId() { return static_cast<uint32_t>(c_.integer("message id", 0, 4294967295.0)); }

    // The new-symbols list has no terminator: its entries are indented.
    void skipNewSymbols() {
        c_.expect(':', "after NS_");
        c_.skipLine();
        while (!c_.atEnd()) {
            c_.advanceRaw();  // the line end
            if (c_.atEnd()) break;
            char n = c_.peek();
            if (n != ' ' && n != '\t' && n != '\r' && n != '\n') break;
            c_.skipLine();
        }
    }

    void nodes() {
        c_.expect(':', "after BU_");
        while (!c_.atLineEnd()) db_.nodes.push_back(c_.name("node name"));
    }

    void message() {
        uint32_t rawId = messageId();
        Message m;
        m.extended = (rawId & kExtendedFlag) != 0;
        m.id = rawId & 0x1FFFFFFFu;
        m.name = c_.name("message name");
        c_.expect(':', "after the message name");
        m.size = static_cast<uint32_t>(c_.integer("message size", 0, 64));
        if (!c_.atLineEnd()) m.transmitter = c_.name("transmitter");
        skipNoFrame_ = rawId == kNoFrameId;
        while (true) {
            c_.skipBlanks();
            if (!c_.nextIsName()) break;
            // Peek for SG_ without consuming another keyword.
            size_t line = c_.line();
            (void)line;
            if (!startsWith("SG_")) break;
            c_.name("SG_");
            m.signals.push_back(signal(m));
        }
        if (!skipNoFrame_) {
            index_.emplace(m.id | (m.extended ? kExtendedFlag : 0), db_.messages.size());
            db_.messages.push_back(std::move(m));
        }
    }

    bool startsWith(const char* kw) {
        Cursor probe = c_;
        std::string n = probe.name("keyword");
        return n == kw;
    }

    Signal signal(const Message& m) {
        Signal s;
        s.name = c_.name("signal name");
        if (c_.nextIsName()) {
            std::string mux = c_.name("multiplexer indicator");
            if (mux == "M") {
                s.isMultiplexer = true;
            } else if (mux.size() > 1 && mux[0] == 'm') {
                std::string digits = mux.substr(1);
                if (digits.back() == 'M') {
                    s.isMultiplexer = true;
                    digits.pop_back();
                }
                if (digits.empty() || digits.size() > 18 ||
                    digits.find_first_not_of("0123456789") != std::string::npos)
                    c_.fail("bad multiplexer indicator '" + mux.substr(0, 64) + "'");
                uint64_t v = std::strtoull(digits.c_str(), nullptr, 10);
                s.muxRanges.push_back({v, v});
                s.muxSwitch = "\x01";  // the message's "M" signal, resolved at the end
            } else {
                c_.fail("bad multiplexer indicator '" + mux.substr(0, 64) + "'");
            }
        }
        c_.expect(':', "after the signal name");
        s.startBit = static_cast<uint32_t>(c_.integer("start bit", 0, 511));
        c_.expect('|', "after the start bit");
        s.length = static_cast<uint32_t>(c_.integer("signal length", 1, 64));
        c_.expect('@', "before the byte order");
        c_.skipBlanks();
        char order = c_.peek();
        if (order != '0' && order != '1') c_.fail("byte order must be 0 or 1");
        c_.advanceRaw();
        s.byteOrder = order == '1' ? ByteOrder::Intel : ByteOrder::Motorola;
        char sign = c_.peek();
        if (sign != '+' && sign != '-') c_.fail("expected '+' or '-' after the byte order");
        c_.advanceRaw();
        s.isSigned = sign == '-';
        c_.expect('(', "before the factor");
        std::string factorText = c_.peekNumberText();
        s.factor = c_.number("factor");
        c_.expect(',', "after the factor");
        std::string offsetText = c_.peekNumberText();
        s.offset = c_.number("offset");
        setDecimalScaling(s, factorText, offsetText);
        c_.expect(')', "after the offset");
        c_.expect('[', "before the minimum");
        s.minimum = c_.number("minimum");
        c_.expect('|', "after the minimum");
        s.maximum = c_.number("maximum");
        c_.expect(']', "after the maximum");
        s.unit = c_.quoted("unit");
        while (!c_.atLineEnd()) {
            if (c_.accept(',')) continue;
            s.receivers.push_back(c_.name("receiver"));
        }
        if (!skipNoFrame_ && !fits(s, m.size))
            c_.fail("signal " + s.name + " does not fit in the " + std::to_string(m.size) +
                    "-byte frame of " + m.name);
        return s;
    }

    // "12.345" -> 12345 and 3 decimals; false for exponents or more than 17 digits.
    static bool decimalUnits(const std::string& text, int64_t& units, int& decimals) {
        size_t i = 0;
        bool negative = false;
        if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
        units = 0;
        decimals = -1;
        int digits = 0;
        for (; i < text.size(); ++i) {
            char c = text[i];
            if (c == '.' && decimals < 0) {
                decimals = 0;
                continue;
            }
            if (c < '0' || c > '9' || ++digits > 17) return false;
            units = units * 10 + (c - '0');
            if (decimals >= 0) ++decimals;
        }
        if (digits == 0) return false;
        if (decimals < 0) decimals = 0;
        if (negative) units = -units;
        return true;
    }

    static void setDecimalScaling(Signal& s, const std::string& factorText, const std::string& offsetText) {
        int64_t f, o;
        int fd, od;
        if (!decimalUnits(factorText, f, fd) || !decimalUnits(offsetText, o, od)) return;
        int scale = fd > od ? fd : od;
        for (; fd < scale; ++fd) f *= 10;
        for (; od < scale; ++od) o *= 10;
        if (scale > 17 || f > 99999999999999999 || f < -99999999999999999 ||
            o > 99999999999999999 || o < -99999999999999999)
            return;
        s.factorUnits = f;
        s.offsetUnits = o;
        s.decimalScale = scale;
    }

    static bool fits(const Signal& s, uint32_t size) {
        uint32_t bits = size * 8;
        if (s.byteOrder == ByteOrder::Intel) return s.startBit + s.length <= bits;
        // Big endian: the start bit is the most significant; count down within a byte, then
        // on to the next byte's bit 7.
        uint32_t byte = s.startBit / 8, bit = s.startBit % 8;
        uint32_t remaining = s.length;
        while (remaining > bit + 1) {
            remaining -= bit + 1;
            bit = 7;
            ++byte;
        }
        return byte < size;
    }

    void comment() {
        c_.skipBlanks();
        if (c_.peek() == '"') {
            db_.comment = c_.quoted("comment");
        } else {
            std::string kind = c_.name("comment object");
            if (kind == "BU_") {
                std::string node = c_.name("node name");
                db_.nodeComments[node] = c_.quoted("comment");
            } else if (kind == "BO_") {
                uint32_t id = messageId();
                std::string text = c_.quoted("comment");
                if (Message* m = findRaw(id)) m->comment = text;
            } else if (kind == "SG_") {
                uint32_t id = messageId();
                std::string sig = c_.name("signal name");
                std::string text = c_.quoted("comment");
                if (Message* m = findRaw(id))
                    for (Signal& s : m->signals)
                        if (s.name == sig) s.comment = text;
            } else {
                c_.skipStatement();
                return;
            }
        }
        c_.expect(';', "after the comment");
    }

    void attributeDefinition() {
        AttributeDefinition d;
        c_.skipBlanks();
        if (c_.peek() != '"') d.objectType = c_.name("attribute object type");
        d.name = c_.quoted("attribute name");
        d.valueType = c_.name("attribute value type");
        if (d.valueType == "ENUM") {
            while (true) {
                c_.skipBlanks();
                if (c_.peek() != '"') break;
                d.enumLabels.push_back(c_.quoted("enum label"));
                if (!c_.accept(',')) break;
            }
        }
        c_.skipStatement();
        db_.attributeDefinitions.push_back(std::move(d));
    }

    std::string attributeValue() {
        c_.skipBlanks();
        if (c_.peek() == '"') return c_.quoted("attribute value");
        std::string v = c_.numberText("attribute value");
        return v;
    }

    void attributeDefault() {
        std::string name = c_.quoted("attribute name");
        std::string value = attributeValue();
        c_.expect(';', "after the attribute default");
        for (AttributeDefinition& d : db_.attributeDefinitions)
            if (d.name == name) d.defaultValue = value;
    }

    void attribute() {
        Attribute a;
        a.name = c_.quoted("attribute name");
        c_.skipBlanks();
        if (c_.peek() != '"' && !std::isdigit(static_cast<unsigned char>(c_.peek())) &&
            c_.peek() != '-') {
            a.objectType = c_.name("attribute object type");
            if (a.objectType == "BO_") {
                a.object = std::to_string(messageId());
            } else if (a.objectType == "SG_") {
                a.object = std::to_string(messageId());
                a.object += " " + c_.name("signal name");
            } else if (a.objectType == "BU_" || a.objectType == "EV_") {
                a.object = c_.name("object name");
            } else {
                c_.skipStatement();
                return;
            }
        }
        a.value = attributeValue();
        c_.expect(';', "after the attribute value");
        db_.attributes.push_back(std::move(a));
    }

    std::map<int64_t, std::string> valueList() {
        std::map<int64_t, std::string> out;
        while (!c_.accept(';')) {
            int64_t v = c_.integer("value", -9.2e18, 9.2e18);
            out[v] = c_.quoted("value text");
        }
        return out;
    }

    void valueTable() {
        std::string name = c_.name("value table name");
        db_.valueTables[name] = valueList();
    }

    void values() {
        c_.skipBlanks();
        if (!std::isdigit(static_cast<unsigned char>(c_.peek()))) {  // environment variable
            c_.skipStatement();
            return;
        }
        uint32_t id = messageId();
        std::string sig = c_.name("signal name");
        auto list = valueList();
        if (Message* m = findRaw(id))
            for (Signal& s : m->signals)
                if (s.name == sig) s.values = list;
    }

    void extendedMux() {
        uint32_t id = messageId();
        std::string sig = c_.name("signal name");
        std::string sw = c_.name("switch name");
        std::vector<std::pair<uint64_t, uint64_t>> ranges;
        do {
            uint64_t lo = c_.unsignedInt("range start");
            c_.expect('-', "in a switch range");
            uint64_t hi = c_.unsignedInt("range end");
            if (hi < lo) c_.fail("switch range ends before it starts");
            ranges.push_back({lo, hi});
        } while (c_.accept(','));
        c_.expect(';', "after the switch ranges");
        Message* m = findRaw(id);
        if (!m) return;
        Signal& s = signalOf(*m, sig);
        if (!m->findSignal(sw)) c_.fail("message " + m->name + " has no switch " + sw);
        if (!extendedSeen_.count(&s)) s.muxRanges.clear();
        extendedSeen_[&s] = true;
        s.muxSwitch = sw;
        s.muxRanges.insert(s.muxRanges.end(), ranges.begin(), ranges.end());
    }

    void signalValueType() {
        uint32_t id = messageId();
        std::string sig = c_.name("signal name");
        c_.accept(':');
        int64_t t = c_.integer("value type", 0, 2);
        c_.expect(';', "after the value type");
        if (Message* m = findRaw(id)) {
            Signal& s = signalOf(*m, sig);
            s.valueType = t == 1 ? ValueType::Float32 : t == 2 ? ValueType::Float64 : ValueType::Integer;
            if ((t == 1 && s.length != 32) || (t == 2 && s.length != 64))
                c_.fail("signal " + sig + " of float type has length " + std::to_string(s.length));
        }
    }

    void finish() {
        // "mN" signals are switched by the message's "M" signal (one without an "m" itself).
        for (Message& m : db_.messages) {
            std::string sw;
            for (const Signal& s : m.signals)
                if (s.isMultiplexer && s.muxSwitch.empty()) { sw = s.name; break; }
            for (Signal& s : m.signals)
                if (s.muxSwitch == "\x01") {
                    if (sw.empty()) {
                        s.muxSwitch.clear();  // no switch in the message: always present
                        s.muxRanges.clear();
                    } else {
                        s.muxSwitch = sw;
                    }
                }
        }
        // The frame format attribute: an enum whose "_FD" labels mark CAN FD, or its raw numbers.
        const AttributeDefinition* format = nullptr;
        for (const AttributeDefinition& d : db_.attributeDefinitions)
            if (d.name == "VFrameFormat") format = &d;
        auto isFd = [&](const std::string& value) {
            if (!format) return false;
            std::string label = value;
            char* end = nullptr;
            long index = std::strtol(value.c_str(), &end, 10);
            if (!value.empty() && *end == '\0') {
                if (format->valueType != "ENUM") return index == 14 || index == 15;
                if (index < 0 || static_cast<size_t>(index) >= format->enumLabels.size()) return false;
                label = format->enumLabels[static_cast<size_t>(index)];
            }
            return label.find("_FD") != std::string::npos;
        };
        bool fdByDefault = format && isFd(format->defaultValue);
        for (Message& m : db_.messages) m.fd = fdByDefault || m.size > 8;
        for (const Attribute& a : db_.attributes)
            if (a.name == "VFrameFormat" && a.objectType == "BO_") {
                uint32_t raw = static_cast<uint32_t>(std::strtoul(a.object.c_str(), nullptr, 10));
                if (Message* m = findRaw(raw)) m->fd = isFd(a.value) || m->size > 8;
            }
    }

    Cursor c_;
    Database& db_;
    bool skipNoFrame_ = false;
    std::map<const Signal*, bool> extendedSeen_;
    std::unordered_map<uint32_t, size_t> index_;
};

}  // namespace

bool readDbcText(const std::string& text, const std::string& fileName, Database& out,
                 std::string& error) {
    Database db;
    try {
        Reader(text, db).run();
        assignCodeNames(db);
    } catch (const ParseError& e) {
        error = fileName + ":" + std::to_string(e.line) + ": " + e.reason;
        return false;
    }
    out = std::move(db);
    return true;
}

bool readDbcFile(const std::string& path, Database& out, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    std::ostringstream buf;
    buf << in.rdbuf();
    return readDbcText(buf.str(), path, out, error);
}

}  // namespace hostbridge::dbc
