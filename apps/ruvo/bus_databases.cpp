#include "apps/ruvo/bus_databases.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "RuvoManager/ruvo_sdk.h"
#include "apps/ruvo/cli.h"
#include "host/dbc.h"

namespace cli {

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

static std::string jsonString(const std::string& s) {
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

static std::string jsonNumber(double v) { return std::isfinite(v) ? number(v) : "null"; }

DbcSpec parseDbcSpec(const std::string& text) {
    DbcSpec spec{text, -1};
    const size_t at = text.rfind('@');
    if (at != std::string::npos) {
        const std::string digits = text.substr(at + 1);
        const long long c = parseId(digits);
        if (c < 0 || c > canlog::kMaxChannel || digits.find_first_not_of("0123456789") != std::string::npos)
            throw UsageError("bad channel '" + digits + "' in " + text + " (0 to 63)");
        spec.channel = static_cast<int>(c);
        spec.file.resize(at);
    }
    if (spec.file.empty()) throw UsageError("--dbc needs FILE.dbc[@CHANNEL]");
    return spec;
}

std::string decodedLine(const canlog::Frame& frame, const std::vector<ChannelDatabase>& databases, bool json) {
    std::vector<DecodedSignal> decoded;
    const int channel = canlog::channelNumber(frame.channel);
    const Message* m = nullptr;
    for (const ChannelDatabase& d : databases) {
        if (d.channel >= 0 && d.channel != channel) continue;
        if ((m = d.database->findMessage(frame.id, frame.extended)) != nullptr) break;
    }
    if (m != nullptr && !frame.remote) decodeMessage(*m, frame.data.data(), frame.data.size(), decoded);
    else decoded.clear();
    char idText[16];
    std::snprintf(idText, sizeof idText, frame.extended ? "%08X" : "%03X", frame.id);
    std::string line;
    if (json) {
        char timeText[40];
        std::snprintf(timeText, sizeof timeText, "%.6f", frame.time);
        line = std::string("{\"time\":") + timeText + ",\"channel\":" + jsonString(frame.channel) +
               ",\"id\":" + std::to_string(frame.id) + ",\"extended\":" + (frame.extended ? "true" : "false") +
               ",\"name\":" + (m ? jsonString(m->name) : "null") + ",\"signals\":{";
        for (size_t i = 0; i < decoded.size(); ++i)
            line += (i ? "," : "") + jsonString(decoded[i].signal->name) + ":" + jsonNumber(decoded[i].physical);
        line += "}}";
    } else {
        char head[80];
        std::snprintf(head, sizeof head, "(%.6f) %s %s ", frame.time, frame.channel.c_str(), idText);
        line = head;
        line += m ? m->name : "?";
        for (const DecodedSignal& d : decoded) {
            line += " " + d.signal->name + "=" + number(d.physical);
            if (!d.signal->unit.empty()) line += " " + d.signal->unit;
            const auto named = d.signal->values.find(static_cast<int64_t>(d.raw));
            if (named != d.signal->values.end()) line += " \"" + named->second + "\"";
        }
    }
    return line;
}

std::vector<ChannelDatabase> loadWorkstationDatabases(const std::vector<DbcSpec>& specs) {
    std::vector<ChannelDatabase> loaded;
    for (const DbcSpec& spec : specs) {
        if (spec.channel < 0) throw UsageError("--dbc needs a channel here: " + spec.file + "@CHANNEL");
        loaded.push_back({spec.channel, readDatabase(spec.file)});
    }
    // Everything is read before the workstation changes: a bad file leaves it as it was.
    DatabaseConfig& config = workstationDatabases();
    config.clear();
    for (size_t i = 0; i < specs.size(); ++i) config.add(specs[i].channel, databaseNameOf(specs[i].file), "", loaded[i].database);
    ruvo_sdk::RefreshRuvoDbcInfo();
    return loaded;
}

}  // namespace cli
