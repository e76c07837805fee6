#pragma once
// The index of the CAN messages in the workstation's bus databases, as the editor browses them and
// the generated "database.h" spells them.

#include <map>
#include <string>
#include <vector>

#include "model/keln_types.h"

struct RuvoDbcSignal {
    std::string name;
};

struct RuvoDbcMessage {
    std::string name;  // a C++ identifier, unique in its database
    u32 id = 0;        // without the extended flag
    char type = 'C';   // 'C' CAN, 'F' CAN FD
    u32 length = 0;    // payload bytes
    std::vector<RuvoDbcSignal> signals;
};

struct RuvoDbcChannel {
    std::vector<std::string> databases;
};

struct RuvoDbcInfo {
    std::map<int, RuvoDbcChannel> channels;
    std::map<std::string, std::vector<RuvoDbcMessage>> contents;
    std::map<std::string, std::string> markers;
};

struct dbcMessageInfoStruct {
    bool isCanFd = false;
    bool hasSignals = false;
    u32 id = 0;
    std::string fullName;  // marker "_" message
    std::string markerName;
    std::string databaseName;
};

// A database is taken by a name filter when the filter is empty or is its name or its marker.
inline bool dbcFilterPasses(const std::string& filter, const std::string& name, const std::string& marker) {
    return filter.empty() || filter == name || filter == marker;
}

// The marker of a database of the index, or its name when it has none.
inline std::string dbcMarkerOf(const RuvoDbcInfo& info, const std::string& database) {
    const auto m = info.markers.find(database);
    return m == info.markers.end() ? database : m->second;
}

// The marker of a database name; a marker passed in is returned as it is, and so is anything else.
inline std::string resolveDbcMarker(const RuvoDbcInfo& info, const std::string& name) {
    if (info.contents.count(name)) return dbcMarkerOf(info, name);
    for (const auto& entry : info.markers)
        if (entry.second == name) return entry.second;
    return name;
}
