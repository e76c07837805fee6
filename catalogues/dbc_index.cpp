#include "catalogues/dbc_index.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>

#include "host/dbc.h"

namespace ruvo::dbc_index {

namespace {

// Every message of every database bound to a channel, in channel order, then load order.
template <typename Visit>
void walk(const RuvoDbcInfo& info, Visit visit) {
    for (const auto& [channel, bound] : info.channels) {
        for (const std::string& database : bound.databases) {
            const auto content = info.contents.find(database);
            if (content == info.contents.end()) continue;
            if (!visit(channel, database, content->second)) return;
        }
    }
}

// Plain copy into a fixed field; long names are cut, as a list shows them anyway.
template <size_t N>
void copyClipped(char (&field)[N], const std::string& text) {
    const size_t n = std::min(text.size(), N - 1);
    std::memcpy(field, text.data(), n);
    std::memset(field + n, 0, N - n);
}

bool containsNoCase(const std::string& text, const std::string& part) {
    return std::search(text.begin(), text.end(), part.begin(), part.end(), [](char a, char b) {
               return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
           }) != text.end();
}

}  // namespace

void rebuild(RuvoDbcInfo& info) {
    info.channels.clear();
    info.contents.clear();
    info.markers.clear();
    std::map<int, std::vector<std::string>> channels;
    std::map<std::string, std::shared_ptr<const hostbridge::dbc::Database>> databases;
    if (!DecodeFuncInterface::GetCfgFileInput(channels, databases, info.markers, NETWORK_CAN)) return;
    for (auto& [channel, names] : channels) info.channels[channel].databases = std::move(names);
    for (const auto& [name, database] : databases) {
        if (!database) continue;
        std::vector<RuvoDbcMessage>& messages = info.contents[name];
        messages.reserve(database->messages.size());
        for (const hostbridge::dbc::Message& m : database->messages) {
            RuvoDbcMessage record;
            record.name = m.codeName.empty() ? m.name : m.codeName;
            record.id = m.id;
            record.type = m.fd ? 'F' : 'C';
            record.length = m.size;
            record.signals.reserve(m.signals.size());
            for (const hostbridge::dbc::Signal& s : m.signals)
                record.signals.push_back({s.codeName.empty() ? s.name : s.codeName});
            messages.push_back(std::move(record));
        }
    }
}

int messageCount(const RuvoDbcInfo& info) {
    int count = 0;
    walk(info, [&](int, const std::string&, const std::vector<RuvoDbcMessage>& messages) {
        count += static_cast<int>(messages.size());
        return true;
    });
    return count;
}

int fillFunctions(const RuvoDbcInfo& info, RuvoFunction* out, unsigned capacity) {
    if (out == nullptr || capacity == 0) return 0;
    unsigned n = 0;
    walk(info, [&](int channel, const std::string& database, const std::vector<RuvoDbcMessage>& messages) {
        const std::string marker = dbcMarkerOf(info, database);
        for (const RuvoDbcMessage& m : messages) {
            if (n >= capacity) return false;
            RuvoFunction& f = out[n++];
            f = RuvoFunction();
            copyClipped(f._KelnFunction::name, marker + "_" + m.name);
            std::vector<std::string> names;
            names.reserve(m.signals.size());
            for (const RuvoDbcSignal& s : m.signals) names.push_back(s.name);
            f.setAdditions(names);
            f.setSubType(channel);
            f.setDemo(std::to_string(m.id));
            if (m.type == 'C') f.setBodyCode("CAN");
            else if (m.type == 'F') f.setBodyCode("CANFD");
        }
        return true;
    });
    return static_cast<int>(n);
}

int fillMessageMap(const RuvoDbcInfo& info, std::map<int, std::vector<dbcMessageInfoStruct>>& out, int channel,
                   const std::string& filter) {
    int count = 0;
    walk(info, [&](int c, const std::string& database, const std::vector<RuvoDbcMessage>& messages) {
        const std::string marker = dbcMarkerOf(info, database);
        if ((channel >= 0 && c != channel) || !dbcFilterPasses(filter, database, marker)) return true;
        std::vector<dbcMessageInfoStruct>& list = out[c];
        for (const RuvoDbcMessage& m : messages) {
            list.push_back({m.type == 'F', !m.signals.empty(), m.id, marker + "_" + m.name, marker, database});
            ++count;
        }
        return true;
    });
    return count;
}

bool messageSignals(const RuvoDbcInfo& info, int channel, const std::string& database, u32 id,
                    std::vector<std::string>& out) {
    out.clear();
    const auto bound = info.channels.find(channel);
    if (bound == info.channels.end()) return false;
    for (const std::string& name : bound->second.databases) {
        if (!dbcFilterPasses(database, name, dbcMarkerOf(info, name))) continue;
        const auto content = info.contents.find(name);
        if (content == info.contents.end()) continue;
        for (const RuvoDbcMessage& m : content->second) {
            if (m.id != id) continue;
            for (const RuvoDbcSignal& s : m.signals) out.push_back(s.name);
            return true;
        }
    }
    return false;
}

void findBySignal(const RuvoDbcInfo& info, const std::string& filter,
                  std::vector<std::tuple<int, std::string, u32>>& out) {
    out.clear();
    if (filter.empty()) return;
    walk(info, [&](int channel, const std::string& database, const std::vector<RuvoDbcMessage>& messages) {
        const std::string marker = dbcMarkerOf(info, database);
        for (const RuvoDbcMessage& m : messages) {
            const bool hit = std::any_of(m.signals.begin(), m.signals.end(),
                                         [&](const RuvoDbcSignal& s) { return containsNoCase(s.name, filter); });
            if (hit) out.emplace_back(channel, marker + "_" + m.name, m.id);
        }
        return true;
    });
}

}  // namespace ruvo::dbc_index
