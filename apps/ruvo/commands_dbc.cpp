// "ruvo dbc" lists what a CAN database holds; "ruvo decode" prints a CAN log's frames with the
// messages and physical signal values of databases.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "apps/ruvo/can_log.h"
#include "apps/ruvo/cli.h"
#include "host/dbc/dbc_codec.h"
#include "host/dbc/dbc_database.h"

namespace cli {
namespace {

using namespace hostbridge::dbc;

std::shared_ptr<Database> readDatabase(const std::string& path) {
    auto db = std::make_shared<Database>();
    std::string error;
    if (!readDbcFile(userPath(path), *db, error)) {
        // Name the file as the user typed it.
        const std::string full = userPath(path);
        if (error.rfind(full, 0) == 0) error = path + error.substr(full.size());
        throw std::runtime_error(error);
    }
    return db;
}

// Decimal or 0x-prefixed hex; -1 when `text` is neither.
long long parseId(const std::string& text) {
    if (text.empty() || text.size() > 12) return -1;
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hex ? text.substr(2) : text;
    if (digits.empty() || digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos)
        return -1;
    return std::strtoll(digits.c_str(), nullptr, hex ? 16 : 10);
}

std::string number(double v) {
    if (!std::isfinite(v)) return std::isnan(v) ? "nan" : (v > 0 ? "inf" : "-inf");
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.15g", v);
    return buf;
}

std::string jsonString(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

std::string jsonNumber(double v) { return std::isfinite(v) ? number(v) : "null"; }

std::string describeSignal(const Signal& s) {
    std::string text = "  " + s.name + " " + std::to_string(s.startBit) + "|" + std::to_string(s.length) + "@" +
                       (s.byteOrder == ByteOrder::Intel ? "1" : "0") + (s.isSigned ? "-" : "+") + " (" +
                       number(s.factor) + "," + number(s.offset) + ") [" + number(s.minimum) + "|" +
                       number(s.maximum) + "] \"" + s.unit + "\"";
    if (s.valueType == ValueType::Float32) text += " float";
    if (s.valueType == ValueType::Float64) text += " double";
    if (s.isMultiplexer) text += " multiplexer";
    if (!s.muxSwitch.empty()) {
        text += " when " + s.muxSwitch + " in";
        for (const auto& r : s.muxRanges)
            text += " " + std::to_string(r.first) + (r.first == r.second ? "" : "-" + std::to_string(r.second));
    }
    if (!s.values.empty()) text += " (" + std::to_string(s.values.size()) + " named values)";
    return text;
}

int cmdDbc(const Args& args) {
    std::string file, messageFilter, signalFilter;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--message" || args[i] == "--signal") {
            if (i + 1 >= args.size()) throw UsageError(args[i] + " needs a value");
            (args[i] == "--message" ? messageFilter : signalFilter) = args[i + 1];
            ++i;
        } else if (!args[i].empty() && args[i][0] == '-') {
            throw UsageError("unknown option " + args[i]);
        } else if (file.empty()) {
            file = args[i];
        } else {
            throw UsageError("expected one FILE.dbc");
        }
    }
    if (file.empty()) throw UsageError("expected FILE.dbc");
    const auto db = readDatabase(file);
    const long long wantedId = parseId(messageFilter);
    size_t shown = 0;
    for (const Message& m : db->messages) {
        if (!messageFilter.empty() && m.name != messageFilter && static_cast<long long>(m.id) != wantedId) continue;
        std::vector<const Signal*> signals;
        for (const Signal& s : m.signals)
            if (signalFilter.empty() || s.name.find(signalFilter) != std::string::npos) signals.push_back(&s);
        if (!signalFilter.empty() && signals.empty()) continue;
        std::printf("0x%X %s %u bytes%s%s%s%s\n", m.id, m.name.c_str(), m.size, m.extended ? " extended" : "",
                    m.fd ? " FD" : "", m.transmitter.empty() ? "" : " from ", m.transmitter.c_str());
        for (const Signal* s : signals) std::printf("%s\n", describeSignal(*s).c_str());
        ++shown;
    }
    if (shown == 0 && (!messageFilter.empty() || !signalFilter.empty())) {
        std::fprintf(stderr, "ruvo: no message in %s matches\n", file.c_str());
        return 1;
    }
    return 0;
}

struct ChannelDatabase {
    int channel;  // -1: every channel
    std::shared_ptr<Database> database;
};

int cmdDecode(const Args& args) {
    std::vector<ChannelDatabase> databases;
    std::string logPath;
    bool json = false;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--dbc") {
            if (i + 1 >= args.size()) throw UsageError("--dbc needs FILE.dbc[@CHANNEL]");
            std::string spec = args[++i];
            int channel = -1;
            const size_t at = spec.rfind('@');
            if (at != std::string::npos) {
                const std::string number = spec.substr(at + 1);
                const long long c = parseId(number);
                if (c < 0 || c > canlog::kMaxChannel || number.find('x') != std::string::npos)
                    throw UsageError("bad channel '" + number + "' in " + spec + " (0 to 63)");
                channel = static_cast<int>(c);
                spec.resize(at);
            }
            databases.push_back({channel, readDatabase(spec)});
        } else if (args[i] == "--json") {
            json = true;
        } else if (!args[i].empty() && args[i][0] == '-') {
            throw UsageError("unknown option " + args[i]);
        } else if (logPath.empty()) {
            logPath = args[i];
        } else {
            throw UsageError("expected one LOG");
        }
    }
    if (databases.empty()) throw UsageError("expected at least one --dbc FILE.dbc[@CHANNEL]");
    if (logPath.empty()) throw UsageError("expected LOG");
    const canlog::ReadResult log = canlog::read(userPath(logPath), logPath);
    std::vector<DecodedSignal> decoded;
    for (const canlog::Frame& f : log.frames) {
        const int channel = canlog::channelNumber(f.channel);
        const Message* m = nullptr;
        for (const ChannelDatabase& d : databases) {
            if (d.channel >= 0 && d.channel != channel) continue;
            if ((m = d.database->findMessage(f.id, f.extended)) != nullptr) break;
        }
        if (m != nullptr && !f.remote) decodeMessage(*m, f.data.data(), f.data.size(), decoded);
        else decoded.clear();
        char idText[16];
        std::snprintf(idText, sizeof idText, f.extended ? "%08X" : "%03X", f.id);
        std::string line;
        if (json) {
            char timeText[40];
            std::snprintf(timeText, sizeof timeText, "%.6f", f.time);
            line = std::string("{\"time\":") + timeText + ",\"channel\":" + jsonString(f.channel) +
                   ",\"id\":" + std::to_string(f.id) + ",\"extended\":" + (f.extended ? "true" : "false") +
                   ",\"name\":" + (m ? jsonString(m->name) : "null") + ",\"signals\":{";
            for (size_t i = 0; i < decoded.size(); ++i)
                line += (i ? "," : "") + jsonString(decoded[i].signal->name) + ":" + jsonNumber(decoded[i].physical);
            line += "}}";
        } else {
            char head[80];
            std::snprintf(head, sizeof head, "(%.6f) %s %s ", f.time, f.channel.c_str(), idText);
            line = head;
            line += m ? m->name : "?";
            for (const DecodedSignal& d : decoded) {
                line += " " + d.signal->name + "=" + number(d.physical);
                if (!d.signal->unit.empty()) line += " " + d.signal->unit;
                const auto named = d.signal->values.find(static_cast<int64_t>(d.raw));
                if (named != d.signal->values.end()) line += " \"" + named->second + "\"";
            }
        }
        std::printf("%s\n", line.c_str());
    }
    return 0;
}

Registrar rDbc({"dbc", "FILE.dbc [--message NAME|ID] [--signal FILTER]", "list the messages and signals of a CAN database",
                cmdDbc,
                "One line per message (id in hex, name, length, extended, FD, transmitter), then its\n"
                "signals: start|length@order sign (factor,offset) [min|max] \"unit\", multiplexing.\n"
                "--message keeps the message of that name or id (decimal or 0x hex); --signal keeps\n"
                "the signals whose name contains FILTER, and the messages that have one."});
Registrar rDecode({"decode", "--dbc FILE.dbc[@CHANNEL]... [--json] LOG",
                   "print a CAN log's frames with their messages and physical signal values", cmdDecode,
                   "One line per frame: time, interface, id, message name (\"?\" when no database\n"
                   "knows it) and NAME=VALUE [unit] [\"value text\"] for each signal the frame\n"
                   "carries (multiplexed signals only when selected). A database with @CHANNEL\n"
                   "applies to that channel (the interface's number, can1 -> 1) only; the first\n"
                   "database that knows an id wins. --json prints one JSON object per line:\n"
                   "{\"time\",\"channel\",\"id\",\"extended\",\"name\",\"signals\":{NAME:VALUE}}.",
                   true});

}  // namespace
}  // namespace cli
