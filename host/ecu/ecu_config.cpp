#include "host/ecu/ecu_config.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <set>

#include "host/json_config.h"

namespace hostbridge {
namespace ecu {

namespace {

using jsonconfig::fail;
using jsonconfig::hex;
using jsonconfig::indexKey;
using jsonconfig::Node;

SessionSet readSessions(const Node& node, const char* name, const std::set<uint8_t>& known) {
    SessionSet sessions;
    const cJSON* list = node.array(name, 127);
    if (list == nullptr) return sessions;
    int index = 0;
    for (const cJSON* item = list->child; item != nullptr; item = item->next, ++index) {
        const std::string key = indexKey(node.key(name), index);
        const auto id = static_cast<uint8_t>(Node::numberOf(item, key, 1, 0x7F));
        if (known.count(id) == 0) fail(key, "session " + hex(id) + " is not in \"sessions\"");
        sessions.push_back(id);
    }
    if (sessions.empty()) fail(node.key(name), "empty (leave it out for every session)");
    return sessions;
}

std::optional<unsigned> readPending(const Node& node) {
    if (!node.has("pending")) return std::nullopt;
    return node.number("pending", 0, 100);
}

uint8_t readSecurity(const Node& node, const char* name, const std::set<uint8_t>& levels) {
    const auto level = static_cast<uint8_t>(node.number(name, 0, 0x7D, 0));
    if (level != 0 && levels.count(level) == 0)
        fail(node.key(name), "security level " + hex(level) + " is not in \"security.levels\"");
    return level;
}

void readAddressing(const Node& node, EcuAddressing& a) {
    node.allowOnly({"physical_id", "functional_id", "response_id", "extended_ids", "n_ae", "fill",
                    "channel", "fd", "block_size", "st_min"});
    a.extendedIds = node.flag("extended_ids", false);
    const uint32_t maxId = a.extendedIds ? 0x1FFFFFFF : 0x7FF;
    a.physicalId = node.number("physical_id", 0, maxId);
    a.functionalId = node.number("functional_id", 0, maxId);
    a.responseId = node.number("response_id", 0, maxId);
    if (a.responseId == a.physicalId || a.responseId == a.functionalId)
        fail(node.key("response_id"), "must differ from the request identifiers");
    if (node.has("n_ae")) a.nAe = static_cast<uint8_t>(node.number("n_ae", 0, 0xFF));
    a.fill = static_cast<uint8_t>(node.number("fill", 0, 0xFF, 0xCC));
    a.channel = static_cast<uint8_t>(node.number("channel", 0, 0xFF, 0));
    a.fd = node.flag("fd", false);
    a.blockSize = static_cast<uint8_t>(node.number("block_size", 0, 0xFF, 0));
    a.stMin = static_cast<uint8_t>(node.number("st_min", 0, 0xFF, 0));
    if (a.stMin > 0x7F && (a.stMin < 0xF1 || a.stMin > 0xF9))
        fail(node.key("st_min"), "reserved value (0x00-0x7F ms or 0xF1-0xF9 for 100-900 us)");
}

void readSessionsList(const Node& top, EcuConfig& config, std::set<uint8_t>& known) {
    const cJSON* list = top.array("sessions", 127);
    if (list == nullptr) fail("sessions", "missing");
    int index = 0;
    for (const cJSON* item = list->child; item != nullptr; item = item->next, ++index) {
        const Node node(item, indexKey("sessions", index));
        node.allowOnly({"id", "p2_ms", "p2_star_ms", "from"});
        EcuSession session;
        session.id = static_cast<uint8_t>(node.number("id", 1, 0x7F));
        if (!known.insert(session.id).second) fail(node.key("id"), "session " + hex(session.id) + " given twice");
        session.p2Ms = static_cast<uint16_t>(node.number("p2_ms", 0, 0xFFFF, 50));
        session.p2StarMs = node.number("p2_star_ms", 0, 655350, 5000);
        if (session.p2StarMs % 10 != 0) fail(node.key("p2_star_ms"), "must be a multiple of 10");
        config.sessions.push_back(session);
    }
    if (known.count(0x01) == 0) fail("sessions", "the default session 0x01 is missing");
    // "from" may name sessions listed after this one: read it once all are known.
    index = 0;
    for (const cJSON* item = list->child; item != nullptr; item = item->next, ++index)
        config.sessions[static_cast<size_t>(index)].from =
            readSessions(Node(item, indexKey("sessions", index)), "from", known);
}

void readServiceSessions(const Node& top, EcuConfig& config, const std::set<uint8_t>& known) {
    if (!top.has("service_sessions")) return;
    const Node node = top.object("service_sessions");
    static const std::set<uint8_t> services = {0x10, 0x11, 0x14, 0x19, 0x22, 0x27, 0x2E, 0x31, 0x3E};
    for (const cJSON* item = top.get("service_sessions")->child; item != nullptr; item = item->next) {
        const std::string name = item->string != nullptr ? item->string : "";
        if (!name.empty() && name[0] == '_') continue;
        const std::string key = node.key(name);
        const auto sid = static_cast<uint8_t>(Node::hexNumber(name.c_str(), key, 0, 0xFF));
        if (services.count(sid) == 0) fail(key, "not a service this ECU offers");
        if (config.serviceSessions.count(sid) != 0) fail(key, "service " + hex(sid) + " given twice");
        config.serviceSessions[sid] = readSessions(node, name.c_str(), known);
    }
}

void readResets(const Node& top, EcuConfig& config, const std::set<uint8_t>& known) {
    const cJSON* list = top.array("resets", 0x7F);
    if (list == nullptr) return;
    int index = 0;
    std::set<uint8_t> seen;
    for (const cJSON* item = list->child; item != nullptr; item = item->next, ++index) {
        const Node node(item, indexKey("resets", index));
        node.allowOnly({"type", "sessions", "power_down_time"});
        EcuReset reset;
        reset.type = static_cast<uint8_t>(node.number("type", 1, 0x7F));
        if (!seen.insert(reset.type).second) fail(node.key("type"), "reset " + hex(reset.type) + " given twice");
        reset.sessions = readSessions(node, "sessions", known);
        if (node.has("power_down_time")) {
            if (reset.type != 0x04) fail(node.key("power_down_time"), "only reset type 0x04 has one");
            reset.powerDownTime = static_cast<uint8_t>(node.number("power_down_time", 0, 0xFF));
        }
        config.resets.push_back(reset);
    }
}

void readSecurityLevels(const Node& top, EcuConfig& config, const std::set<uint8_t>& known,
                        std::set<uint8_t>& levels) {
    if (!top.has("security")) return;
    const Node node = top.object("security");
    node.allowOnly({"max_attempts", "delay_ms", "levels"});
    config.maxKeyAttempts = node.number("max_attempts", 1, 255, 3);
    config.keyDelayMs = node.number("delay_ms", 0, 3600000, 10000);
    const cJSON* list = node.array("levels", 63);
    if (list == nullptr) fail(node.key("levels"), "missing");
    int index = 0;
    for (const cJSON* item = list->child; item != nullptr; item = item->next, ++index) {
        const Node levelNode(item, indexKey(node.key("levels"), index));
        levelNode.allowOnly({"level", "seed", "mask", "sessions"});
        EcuSecurityLevel level;
        level.level = static_cast<uint8_t>(levelNode.number("level", 1, 0x7D));
        if (level.level % 2 == 0) fail(levelNode.key("level"), "must be odd (the requestSeed sub-function)");
        if (!levels.insert(level.level).second) fail(levelNode.key("level"), "level " + hex(level.level) + " given twice");
        level.seed = levelNode.bytes("seed", 32);
        level.mask = levelNode.bytes("mask", 32);
        if (level.seed.empty()) fail(levelNode.key("seed"), "missing or empty");
        if (std::all_of(level.seed.begin(), level.seed.end(), [](uint8_t b) { return b == 0; }))
            fail(levelNode.key("seed"), "all zero (that seed means already unlocked)");
        if (level.mask.size() != level.seed.size()) fail(levelNode.key("mask"), "must be as long as the seed");
        level.sessions = readSessions(levelNode, "sessions", known);
        config.securityLevels.push_back(level);
    }
}

void readDids(const Node& top, EcuConfig& config, const std::set<uint8_t>& known,
              const std::set<uint8_t>& levels) {
    const cJSON* list = top.array("dids", 0x10000);
    if (list == nullptr) return;
    int index = 0;
    std::set<uint16_t> seen;
    for (const cJSON* item = list->child; item != nullptr; item = item->next, ++index) {
        const Node node(item, indexKey("dids", index));
        node.allowOnly({"id", "value", "ascii", "length", "read", "write", "read_sessions",
                        "write_sessions", "read_security", "write_security", "conditions_correct",
                        "pending"});
        EcuDid did;
        did.id = static_cast<uint16_t>(node.number("id", 0, 0xFFFF));
        if (!seen.insert(did.id).second) fail(node.key("id"), "identifier " + hex(did.id) + " given twice");
        if (node.has("value") && node.has("ascii")) fail(node.key("ascii"), "give \"value\" or \"ascii\", not both");
        if (node.has("ascii")) {
            const std::string text = node.text("ascii", kMaxDidLength);
            did.value.assign(text.begin(), text.end());
        } else {
            did.value = node.bytes("value", kMaxDidLength);
        }
        if (node.has("length")) {
            const size_t length = node.number("length", 1, kMaxDidLength);
            if (did.value.size() > length)
                fail(node.key("value"), "longer than \"length\" (" + std::to_string(length) + ")");
            did.value.resize(length, 0x00);
        }
        if (did.value.empty()) fail(node.key("value"), "missing or empty (give \"value\" or \"length\")");
        did.readable = node.flag("read", true);
        did.writable = node.flag("write", false);
        did.readSessions = readSessions(node, "read_sessions", known);
        did.writeSessions = readSessions(node, "write_sessions", known);
        did.readSecurity = readSecurity(node, "read_security", levels);
        did.writeSecurity = readSecurity(node, "write_security", levels);
        did.conditionsCorrect = node.flag("conditions_correct", true);
        did.pending = readPending(node);
        config.dids.push_back(std::move(did));
    }
}

void readDtcs(const Node& top, EcuConfig& config) {
    if (!top.has("dtcs")) return;
    const Node node = top.object("dtcs");
    node.allowOnly({"availability_mask", "format", "list"});
    config.dtcAvailabilityMask = static_cast<uint8_t>(node.number("availability_mask", 0, 0xFF, 0xFF));
    config.dtcFormat = static_cast<uint8_t>(node.number("format", 0, 0xFF, 0x01));
    const cJSON* list = node.array("list", 1000);
    if (list == nullptr) return;
    int index = 0;
    std::set<uint32_t> seen;
    for (const cJSON* item = list->child; item != nullptr; item = item->next, ++index) {
        const Node dtcNode(item, indexKey(node.key("list"), index));
        dtcNode.allowOnly({"dtc", "status"});
        EcuDtc dtc;
        dtc.code = dtcNode.number("dtc", 0, 0xFFFFFE);  // 0xFFFFFF names the group of all
        if (!seen.insert(dtc.code).second) fail(dtcNode.key("dtc"), "code " + hex(dtc.code) + " given twice");
        dtc.status = static_cast<uint8_t>(dtcNode.number("status", 0, 0xFF));
        config.dtcs.push_back(dtc);
    }
}

void readRoutines(const Node& top, EcuConfig& config, const std::set<uint8_t>& known,
                  const std::set<uint8_t>& levels) {
    const cJSON* list = top.array("routines", 0x10000);
    if (list == nullptr) return;
    int index = 0;
    std::set<uint16_t> seen;
    for (const cJSON* item = list->child; item != nullptr; item = item->next, ++index) {
        const Node node(item, indexKey("routines", index));
        node.allowOnly({"id", "sessions", "security", "start_result", "stop_result", "results",
                        "option_length", "conditions_correct", "pending"});
        EcuRoutine routine;
        routine.id = static_cast<uint16_t>(node.number("id", 0, 0xFFFF));
        if (!seen.insert(routine.id).second) fail(node.key("id"), "routine " + hex(routine.id) + " given twice");
        routine.sessions = readSessions(node, "sessions", known);
        routine.security = readSecurity(node, "security", levels);
        routine.startResult = node.bytes("start_result", kMaxDidLength);
        routine.stopResult = node.bytes("stop_result", kMaxDidLength);
        routine.results = node.bytes("results", kMaxDidLength);
        if (node.has("option_length")) routine.optionLength = node.number("option_length", 0, 4091);
        routine.conditionsCorrect = node.flag("conditions_correct", true);
        routine.pending = readPending(node);
        config.routines.push_back(std::move(routine));
    }
}

void readConfig(const cJSON* root, EcuConfig& config) {
    const Node top(root, "");
    top.allowOnly({"name", "addressing", "s3_ms", "response_delay_ms", "response_pending",
                   "max_response_length", "max_read_dids", "sessions", "service_sessions", "resets",
                   "security", "dids", "dtcs", "routines"});
    config.name = top.has("name") ? top.text("name", 256) : "";
    readAddressing(top.object("addressing"), config.addressing);
    config.s3Ms = top.number("s3_ms", 1, 3600000, 5000);
    config.responseDelayMs = top.number("response_delay_ms", 0, 60000, 0);
    if (top.has("response_pending")) {
        const Node pending = top.object("response_pending");
        pending.allowOnly({"count", "interval_ms"});
        config.pendingCount = pending.number("count", 0, 100, 0);
        config.pendingIntervalMs = pending.number("interval_ms", 0, 60000, 0);
    }
    config.maxResponseLength = top.number("max_response_length", 8, 65535, 4095);
    config.maxReadDids = top.number("max_read_dids", 1, 2047, 16);
    std::set<uint8_t> known;
    readSessionsList(top, config, known);
    readServiceSessions(top, config, known);
    readResets(top, config, known);
    std::set<uint8_t> levels;
    readSecurityLevels(top, config, known, levels);
    readDids(top, config, known, levels);
    readDtcs(top, config);
    readRoutines(top, config, known, levels);
}

}  // namespace

bool parseEcuConfig(const std::string& text, const std::string& fileName, EcuConfig& config, std::string& error) {
    EcuConfig parsed;
    if (!jsonconfig::parseDocument(text, fileName, [&](const cJSON* root) { readConfig(root, parsed); }, error)) {
        return false;
    }
    config = std::move(parsed);
    return true;
}

bool loadEcuConfig(const std::string& path, EcuConfig& config, std::string& error) {
    std::string text;
    return jsonconfig::readDescription(path, text, error) && parseEcuConfig(text, path, config, error);
}

}  // namespace ecu
}  // namespace hostbridge
