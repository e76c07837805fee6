// The index of the workstation's CAN messages and the generated "database.h".

#include <cstring>

#include "RuvoManager/ruvo_sdk.h"
#include "catalogues/dbc_index.h"
#include "generator/database_header.h"
#include "model/RuvoCode.h"

namespace {
std::string text(const char* s) { return s ? s : ""; }
}  // namespace

void RuvoManager::updateRuvoDbcInfo(int op, int channel, const char* name) {
    const std::string database = text(name);
    std::string marker;
    // The marker as it was, so the header can drop the section of a renamed database.
    if ((op == DBC_OP_ADD || op == DBC_OP_CHANGE) && channel >= 0 && !database.empty())
        marker = resolveDbcMarker(dbcInfo, database);
    if (op == DBC_OP_REMOVE) {
        dbcInfo = RuvoDbcInfo();
    } else {
        ruvo::dbc_index::rebuild(dbcInfo);
    }
    ruvo::database_header::update(RuvoCode::includeRoot(), dbcInfo, op, channel, database, marker);
}

int RuvoManager::getAppletDbcInfoCount() const { return ruvo::dbc_index::messageCount(dbcInfo); }

int RuvoManager::fillAppletDbcInfos(RuvoFunction* out, unsigned capacity) const {
    return ruvo::dbc_index::fillFunctions(dbcInfo, out, capacity);
}

std::string RuvoManager::resolveDbcMarkerName(const std::string& name) const {
    return resolveDbcMarker(dbcInfo, name);
}

int RuvoManager::fillAppletDbcInfoMap(std::map<int, std::vector<dbcMessageInfoStruct>>& out, int channel,
                                      const std::string& filter) const {
    return ruvo::dbc_index::fillMessageMap(dbcInfo, out, channel, filter);
}

bool RuvoManager::getAppletDbcMessageSignals(int channel, const std::string& database, u32 id,
                                             std::vector<std::string>& out) const {
    return ruvo::dbc_index::messageSignals(dbcInfo, channel, database, id, out);
}

void RuvoManager::findAppletDbcMessagesBySignalFilter(const std::string& filter,
                                                      std::vector<std::tuple<int, std::string, u32>>& out) const {
    ruvo::dbc_index::findBySignal(dbcInfo, filter, out);
}

namespace ruvo_sdk {

void RefreshRuvoDbcInfo() { RuvoManager::getInstance().updateRuvoDbcInfo(DBC_OP_REFRESH, -1, ""); }

void RefreshRuvoDbcInfoEx(int op, int channel, const char* name) {
    RuvoManager::getInstance().updateRuvoDbcInfo(op, channel, name);
}

int getRuvoDbcInfoCount() { return RuvoManager::getInstance().getAppletDbcInfoCount(); }

int getRuvoDbcInfos(RuvoFunction* out, unsigned* capacity) {
    if (capacity == nullptr) return 0;
    return RuvoManager::getInstance().fillAppletDbcInfos(out, *capacity);
}

int resolveRuvoDbcMarkerName(const char* name, char* out, unsigned size) {
    if (out == nullptr || size == 0) return -1;
    const std::string marker = RuvoManager::getInstance().resolveDbcMarkerName(text(name));
    if (marker.size() >= size) return -1;
    std::memcpy(out, marker.c_str(), marker.size() + 1);
    return 0;
}

int fillRuvoDbcInfoMap(std::map<int, std::vector<dbcMessageInfoStruct>>& out, int channel, const char* filter) {
    return RuvoManager::getInstance().fillAppletDbcInfoMap(out, channel, text(filter));
}

bool getRuvoDbcMessageSignals(int channel, const char* database, u32 id, std::vector<std::string>& out) {
    return RuvoManager::getInstance().getAppletDbcMessageSignals(channel, text(database), id, out);
}

void findRuvoDbcMessagesBySignalFilter(const char* filter, std::vector<std::tuple<int, std::string, u32>>& out) {
    RuvoManager::getInstance().findAppletDbcMessagesBySignalFilter(text(filter), out);
}

}  // namespace ruvo_sdk
