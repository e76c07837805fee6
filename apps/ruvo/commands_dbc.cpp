// "ruvo dbc" lists what a CAN database holds; "ruvo decode" prints a CAN log's frames with the
// messages and physical signal values of databases.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "apps/ruvo/bus_databases.h"
#include "apps/ruvo/can_log.h"
#include "apps/ruvo/cli.h"
#include "host/dbc/dbc_codec.h"
#include "host/dbc/dbc_database.h"

namespace cli {
namespace {

using namespace hostbridge::dbc;

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

int cmdDecode(const Args& args) {
    std::vector<ChannelDatabase> databases;
    std::string logPath;
    bool json = false;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--dbc") {
            if (i + 1 >= args.size()) throw UsageError("--dbc needs FILE.dbc[@CHANNEL]");
            const DbcSpec spec = parseDbcSpec(args[++i]);
            databases.push_back({spec.channel, readDatabase(spec.file)});
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
    for (const canlog::Frame& f : log.frames) std::printf("%s\n", decodedLine(f, databases, json).c_str());
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
