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

namespace hostbridge {
namespace ecu {

namespace {

// A description larger than this is not one: refuse it before reading it whole.
constexpr std::streamoff kMaxFileSize = 16 * 1024 * 1024;

struct ConfigError {
    std::string key;
    std::string problem;
};

[[noreturn]] void fail(const std::string& key, const std::string& problem) {
    throw ConfigError{key, problem};
}

std::string hex(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned>(value));
    return text;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// One JSON object and where it sits in the file, for errors that name the key.
class Node {
public:
    Node(const cJSON* json, std::string path) : json_(json), path_(std::move(path)) {
        if (!cJSON_IsObject(json_)) fail(path_.empty() ? "(top)" : path_, "must be an object");
    }

    // Every key must be one of `allowed`, and appear once: a misspelt key would otherwise be
    // silently ignored and the ECU would behave differently from what the file says. Keys that
    // begin with "_" are comments.
    void allowOnly(std::initializer_list<const char*> allowed) const {
        std::set<std::string> seen;
        for (const cJSON* item = json_->child; item != nullptr; item = item->next) {
            const std::string name = item->string != nullptr ? item->string : "";
            if (!name.empty() && name[0] == '_') continue;  // a comment
            if (std::none_of(allowed.begin(), allowed.end(),
                             [&](const char* a) { return name == a; }))
                fail(key(name), "unknown key");
            if (!seen.insert(name).second) fail(key(name), "given twice");
        }
    }

    std::string key(const std::string& name) const { return path_.empty() ? name : path_ + "." + name; }
    const cJSON* get(const char* name) const { return cJSON_GetObjectItemCaseSensitive(json_, name); }
    bool has(const char* name) const { return get(name) != nullptr; }

    Node object(const char* name) const {
        const cJSON* item = get(name);
        if (item == nullptr) fail(key(name), "missing");
        return Node(item, key(name));
    }

    // A JSON number is decimal; a string is hexadecimal, with or without "0x".
    uint32_t number(const char* name, uint32_t min, uint32_t max) const {
        const cJSON* item = get(name);
        if (item == nullptr) fail(key(name), "missing");
        return numberOf(item, key(name), min, max);
    }
    uint32_t number(const char* name, uint32_t min, uint32_t max, uint32_t fallback) const {
        return has(name) ? number(name, min, max) : fallback;
    }

    bool flag(const char* name, bool fallback) const {
        const cJSON* item = get(name);
        if (item == nullptr) return fallback;
        if (!cJSON_IsBool(item)) fail(key(name), "must be true or false");
        return cJSON_IsTrue(item);
    }

    std::string text(const char* name, size_t maxLength) const {
        const cJSON* item = get(name);
        if (!cJSON_IsString(item)) fail(key(name), "must be a string");
        std::string value = item->valuestring;
        if (value.size() > maxLength)
            fail(key(name), "longer than " + std::to_string(maxLength) + " characters");
        return value;
    }

    // Pairs of hex digits, blanks allowed between bytes.
    std::vector<uint8_t> bytes(const char* name, size_t maxLength) const {
        const cJSON* item = get(name);
        if (item == nullptr) return {};
        if (!cJSON_IsString(item)) fail(key(name), "must be a string of hex bytes");
        std::vector<uint8_t> out;
        const char* p = item->valuestring;
        while (*p != '\0') {
            if (*p == ' ') {
                ++p;
                continue;
            }
            const int high = hexDigit(p[0]);
            const int low = high < 0 ? -1 : hexDigit(p[1]);
            if (high < 0 || low < 0)
                fail(key(name), "not a string of hex bytes (two hex digits per byte)");
            if (out.size() == maxLength)
                fail(key(name), "longer than " + std::to_string(maxLength) + " bytes");
            out.push_back(static_cast<uint8_t>(high * 16 + low));
            p += 2;
        }
        return out;
    }

    const cJSON* array(const char* name, size_t maxItems) const {
        const cJSON* item = get(name);
        if (item == nullptr) return nullptr;
        if (!cJSON_IsArray(item)) fail(key(name), "must be an array");
        if (static_cast<size_t>(cJSON_GetArraySize(item)) > maxItems)
            fail(key(name), "more than " + std::to_string(maxItems) + " entries");
        return item;
    }

    static uint32_t hexNumber(const char* p, const std::string& key, uint32_t min, uint32_t max) {
        if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) p += 2;
        if (*p == '\0') fail(key, "empty hex number");
        double value = 0;
        for (; *p != '\0'; ++p) {
            const int digit = hexDigit(*p);
            if (digit < 0) fail(key, "not a hex number");
            value = value * 16 + digit;
            if (value > max) break;
        }
        if (value < min || value > max)
            fail(key, "out of range (" + hex(min) + " to " + hex(max) + ")");
        return static_cast<uint32_t>(value);
    }

    static uint32_t numberOf(const cJSON* item, const std::string& key, uint32_t min, uint32_t max) {
        const std::string range = " (" + std::to_string(min) + " to " + std::to_string(max) + ")";
        double value = 0;
        if (cJSON_IsNumber(item)) {
            value = item->valuedouble;
            if (!std::isfinite(value) || value != std::floor(value))
                fail(key, "must be a whole number");
        } else if (cJSON_IsString(item)) {
            return hexNumber(item->valuestring, key, min, max);
        } else {
            fail(key, "must be a number or a hex string");
        }
        if (value < min || value > max) fail(key, "out of range" + range);
        return static_cast<uint32_t>(value);
    }

private:
    const cJSON* json_;
    std::string path_;
};

std::string indexKey(const std::string& key, int index) {
    return key + "[" + std::to_string(index) + "]";
}

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

bool parseEcuConfig(const std::string& text, const std::string& fileName, EcuConfig& config,
                    std::string& error) {
    const char* end = nullptr;
    std::unique_ptr<cJSON, void (*)(cJSON*)> root(
        cJSON_ParseWithLengthOpts(text.data(), text.size(), &end, false), cJSON_Delete);
    size_t offset = end != nullptr && end >= text.data() ? static_cast<size_t>(end - text.data()) : 0;
    offset = std::min(offset, text.size());
    // Anything but blanks after the value is as broken as a broken value.
    const size_t rest = text.find_first_not_of(" \t\r\n", offset);
    if (!root || rest != std::string::npos) {
        if (root) offset = rest;
        const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(offset), '\n');
        error = fileName + ": line " + std::to_string(line) + ": not valid JSON";
        return false;
    }
    EcuConfig parsed;
    try {
        readConfig(root.get(), parsed);
    } catch (const ConfigError& e) {
        error = fileName + ": " + e.key + ": " + e.problem;
        return false;
    }
    config = std::move(parsed);
    return true;
}

bool loadEcuConfig(const std::string& path, EcuConfig& config, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = path + ": cannot open: " + std::strerror(errno);
        return false;
    }
    in.seekg(0, std::ios::end);
    const std::streamoff size = in.tellg();
    if (size < 0 || size > kMaxFileSize) {
        error = path + ": not a readable file of at most 16 MB";
        return false;
    }
    in.seekg(0, std::ios::beg);
    std::string text(static_cast<size_t>(size), '\0');
    if (!in.read(&text[0], size)) {
        error = path + ": read failed";
        return false;
    }
    return parseEcuConfig(text, path, config, error);
}

}  // namespace ecu
}  // namespace hostbridge
