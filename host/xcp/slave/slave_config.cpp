// Reads an XCP slave file. Every value a hostile file could get wrong is checked here, so the
// protocol core trusts its configuration.

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
#include "host/xcp/slave/slave_names.h"
#include "host/xcp/xcp_protocol.h"
#include "host/xcp/xcp_slave.h"

namespace hostxcp {

namespace {

// All memory of one slave together.
constexpr size_t kMaxMemory = 64 * 1024 * 1024;

using hostbridge::jsonconfig::fail;
using hostbridge::jsonconfig::indexKey;
using hostbridge::jsonconfig::Node;


// One of the given words.
template <typename T>
T choice(const Node& node, const char* name, std::initializer_list<std::pair<const char*, T>> words, T fallback) {
    if (!node.has(name)) return fallback;
    const std::string value = node.text(name, 64);
    std::string list;
    for (const auto& w : words) {
        if (value == w.first) return w.second;
        list += (list.empty() ? "\"" : ", \"") + std::string(w.first) + "\"";
    }
    fail(node.key(name), "must be one of " + list);
}

uint8_t resourceBit(const std::string& word, const std::string& key) {
    if (word == "cal_pag") return res::kCalPag;
    if (word == "daq") return res::kDaq;
    if (word == "pgm") return res::kPgm;
    if (word == "stim") fail(key, "\"stim\" is not simulated");
    fail(key, "must be \"cal_pag\", \"daq\" or \"pgm\"");
}

bool validFdLength(uint32_t n) {
    static const uint32_t kLengths[] = {8, 12, 16, 20, 24, 32, 48, 64};
    return std::find(std::begin(kLengths), std::end(kLengths), n) != std::end(kLengths);
}

void readCan(const Node& node, XcpSlaveConfig& c) {
    node.allowOnly({"channel", "master_id", "slave_id", "broadcast_id", "extended_ids", "fd", "frame_length", "fill"});
    c.channel = static_cast<uint8_t>(node.number("channel", 0, 0xFF, 0));
    c.extendedIds = node.flag("extended_ids", false);
    const uint32_t maxId = c.extendedIds ? 0x1FFFFFFF : 0x7FF;
    c.masterId = node.number("master_id", 0, maxId);
    c.slaveId = node.number("slave_id", 0, maxId);
    if (c.slaveId == c.masterId) fail(node.key("slave_id"), "must differ from \"master_id\"");
    if (node.has("broadcast_id")) {
        c.broadcastId = node.number("broadcast_id", 0, maxId);
        if (*c.broadcastId == c.masterId || *c.broadcastId == c.slaveId)
            fail(node.key("broadcast_id"), "must differ from \"master_id\" and \"slave_id\"");
    }
    c.fd = node.flag("fd", false);
    c.frameLength = static_cast<uint8_t>(node.number("frame_length", 0, 64, 0));
    if (c.frameLength != 0 && (c.fd ? !validFdLength(c.frameLength) : c.frameLength != 8))
        fail(node.key("frame_length"), c.fd ? "not a CAN FD frame length of 8 to 64" : "must be 0 or 8 without CAN FD");
    c.fill = static_cast<uint8_t>(node.number("fill", 0, 0xFF, 0));
}

void readProtocol(const Node& node, XcpSlaveConfig& c) {
    node.allowOnly({"max_cto", "max_dto", "byte_order", "address_granularity", "slave_block_mode",
                    "master_block_mode", "max_bs", "min_st", "checksum", "max_checksum_block", "resources",
                    "freeze_supported"});
    const uint32_t most = c.fd ? 64 : 8;
    c.maxCto = static_cast<uint8_t>(node.number("max_cto", 8, most, 8));
    c.maxDto = static_cast<uint16_t>(node.number("max_dto", 8, most, 8));
    if (c.frameLength != 0 && (c.frameLength < c.maxCto || c.frameLength < c.maxDto))
        fail("can.frame_length", "shorter than MAX_CTO or MAX_DTO");
    c.motorola = choice<bool>(node, "byte_order", {{"intel", false}, {"motorola", true}}, false);
    c.granularity = static_cast<uint8_t>(node.number("address_granularity", 1, 4, 1));
    if (c.granularity == 3) fail(node.key("address_granularity"), "must be 1, 2 or 4");
    c.slaveBlockMode = node.flag("slave_block_mode", true);
    c.masterBlockMode = node.flag("master_block_mode", true);
    c.maxBs = static_cast<uint8_t>(node.number("max_bs", 1, 255, 16));
    c.minSt = static_cast<uint8_t>(node.number("min_st", 0, 255, 0));
    c.checksum = choice<XcpChecksum>(node, "checksum",
                                     {{"ADD_11", XcpChecksum::Add11}, {"ADD_12", XcpChecksum::Add12},
                                      {"ADD_14", XcpChecksum::Add14}, {"ADD_22", XcpChecksum::Add22},
                                      {"ADD_24", XcpChecksum::Add24}, {"ADD_44", XcpChecksum::Add44},
                                      {"CRC_16", XcpChecksum::Crc16}, {"CRC_16_CITT", XcpChecksum::Crc16Ccitt},
                                      {"CRC_32", XcpChecksum::Crc32}},
                                     XcpChecksum::Crc16Ccitt);
    c.maxChecksumBlock = node.number("max_checksum_block", 1, 0x1000000, 0x10000);
    c.freezeSupported = node.flag("freeze_supported", true);
    const cJSON* list = node.array("resources", 3);
    if (list != nullptr) c.resources = 0;
    int index = 0;
    for (const cJSON* item = list != nullptr ? list->child : nullptr; item != nullptr; item = item->next, ++index) {
        const std::string key = indexKey(node.key("resources"), index);
        if (!cJSON_IsString(item)) fail(key, "must be a string");
        const uint8_t bit = resourceBit(item->valuestring, key);
        if (c.resources & bit) fail(key, "given twice");
        c.resources |= bit;
    }
}

void readProtection(const Node& top, XcpSlaveConfig& c) {
    const cJSON* list = top.array("protection", 3);
    int index = 0;
    for (const cJSON* item = list != nullptr ? list->child : nullptr; item != nullptr; item = item->next, ++index) {
        const Node node(item, indexKey("protection", index));
        node.allowOnly({"resource", "seed", "mask"});
        XcpSlaveProtection p;
        p.resource = resourceBit(node.text("resource", 16), node.key("resource"));
        if ((c.resources & p.resource) == 0) fail(node.key("resource"), "not in \"protocol.resources\"");
        for (const XcpSlaveProtection& q : c.protections) {
            if (q.resource == p.resource) fail(node.key("resource"), "protected twice");
        }
        p.seed = node.bytes("seed", 255);
        p.mask = node.bytes("mask", 255);
        if (p.seed.empty()) fail(node.key("seed"), "missing or empty");
        if (p.mask.empty()) fail(node.key("mask"), "missing or empty");
        c.protections.push_back(std::move(p));
    }
}

// "size" bytes, the first from "bytes", the rest "fill".
std::vector<uint8_t> readContent(const Node& node, uint8_t granularity) {
    const uint32_t size = node.number("size", 1, 16 * 1024 * 1024);
    if (size % granularity != 0) fail(node.key("size"), "not a whole number of address elements");
    std::vector<uint8_t> content = node.bytes("bytes", size);
    content.resize(size, static_cast<uint8_t>(node.number("fill", 0, 0xFF, 0)));
    return content;
}

struct Span {
    uint8_t ext;
    uint64_t from, to;  // elements
    std::string key;
};

void claim(std::vector<Span>& spans, const Span& span, size_t& total, size_t bytes) {
    if (span.to > 0x100000000ull) fail(span.key, "runs past the end of the 32-bit address space");
    for (const Span& s : spans) {
        if (s.ext == span.ext && span.from < s.to && s.from < span.to) fail(span.key, "overlaps " + s.key);
    }
    total += bytes;
    if (total > kMaxMemory) fail(span.key, "more than 64 MB of memory in all");
    spans.push_back(span);
}

void checkName(const Node& node, std::set<std::string>& names, std::string& name) {
    name = node.text("name", 64);
    if (name.empty()) fail(node.key("name"), "empty");
    if (!names.insert(name).second) fail(node.key("name"), "\"" + name + "\" given twice");
}

void readMemory(const Node& top, XcpSlaveConfig& c) {
    std::vector<Span> spans;
    std::set<std::string> names;
    size_t total = 0;
    const cJSON* list = top.array("memory", 4096);
    int index = 0;
    for (const cJSON* item = list != nullptr ? list->child : nullptr; item != nullptr; item = item->next, ++index) {
        const Node node(item, indexKey("memory", index));
        node.allowOnly({"name", "address", "extension", "size", "bytes", "fill", "writable", "flash"});
        XcpSlaveRegion r;
        checkName(node, names, r.name);
        r.address = node.number("address", 0, 0xFFFFFFFF);
        r.extension = static_cast<uint8_t>(node.number("extension", 0, 0xFF, 0));
        r.bytes = readContent(node, c.granularity);
        r.flash = node.flag("flash", false);
        r.writable = node.flag("writable", !r.flash);
        if (r.flash && r.writable) fail(node.key("writable"), "a flash region is written by the programming commands only");
        claim(spans, {r.extension, r.address, r.address + r.bytes.size() / c.granularity, node.key("address")}, total,
              r.bytes.size());
        c.regions.push_back(std::move(r));
    }
    const cJSON* segments = top.array("segments", 255);
    index = 0;
    for (const cJSON* item = segments != nullptr ? segments->child : nullptr; item != nullptr; item = item->next, ++index) {
        const Node node(item, indexKey("segments", index));
        node.allowOnly({"name", "address", "extension", "size", "bytes", "fill", "pages", "ecu_page", "xcp_page"});
        XcpSlaveSegment s;
        checkName(node, names, s.name);
        s.address = node.number("address", 0, 0xFFFFFFFF);
        s.extension = static_cast<uint8_t>(node.number("extension", 0, 0xFF, 0));
        s.initial = readContent(node, c.granularity);
        const cJSON* pages = node.array("pages", 255);
        if (pages == nullptr || cJSON_GetArraySize(pages) == 0) fail(node.key("pages"), "missing or empty");
        int p = 0;
        for (const cJSON* page = pages->child; page != nullptr; page = page->next, ++p) {
            const Node pageNode(page, indexKey(node.key("pages"), p));
            pageNode.allowOnly({"name", "writable"});
            XcpSlavePage pg;
            pg.name = pageNode.has("name") ? pageNode.text("name", 64) : "";
            pg.writable = pageNode.flag("writable", true);
            s.pages.push_back(pg);
        }
        s.ecuPage = static_cast<uint8_t>(node.number("ecu_page", 0, static_cast<uint32_t>(s.pages.size() - 1), 0));
        s.xcpPage = static_cast<uint8_t>(node.number("xcp_page", 0, static_cast<uint32_t>(s.pages.size() - 1), 0));
        claim(spans, {s.extension, s.address, s.address + s.initial.size() / c.granularity, node.key("address")}, total,
              s.initial.size() * s.pages.size());
        c.segments.push_back(std::move(s));
    }
}

void readEvents(const Node& top, XcpSlaveConfig& c) {
    const cJSON* list = top.array("events", 0xFFFF);
    int index = 0;
    for (const cJSON* item = list != nullptr ? list->child : nullptr; item != nullptr; item = item->next, ++index) {
        const Node node(item, indexKey("events", index));
        node.allowOnly({"name", "period_ms", "priority", "max_lists"});
        XcpSlaveEvent e;
        e.name = node.text("name", 255);
        e.periodMs = node.number("period_ms", 0, 255000);
        // GET_DAQ_EVENT_INFO tells the period as a byte in a power-of-ten unit.
        for (uint32_t p = e.periodMs; p > 255; p /= 10) {
            if (p % 10 != 0) fail(node.key("period_ms"), "above 255 it must be a multiple of 10 (of 100 above 2550, ...)");
        }
        e.priority = static_cast<uint8_t>(node.number("priority", 0, 0xFF, 0));
        e.maxLists = static_cast<uint8_t>(node.number("max_lists", 1, 0xFF, 0xFF));
        c.events.push_back(std::move(e));
    }
}

void readDaq(const Node& top, XcpSlaveConfig& c) {
    XcpSlaveDaq& d = c.daq;
    if (!top.has("daq")) return;
    const Node node = top.object("daq");
    node.allowOnly({"config", "lists", "max_lists", "max_odts", "max_entries", "max_total_entries", "max_entry_size",
                    "timestamp", "prescaler"});
    d.dynamic = choice<bool>(node, "config", {{"dynamic", true}, {"static", false}}, true);
    d.maxLists = static_cast<uint16_t>(node.number("max_lists", 1, 0xFFFF, 16));
    d.maxOdts = static_cast<uint8_t>(node.number("max_odts", 1, 0xFC, 16));
    d.maxEntries = static_cast<uint8_t>(node.number("max_entries", 1, 0xFF, 16));
    d.maxTotalEntries = node.number("max_total_entries", 1, 0xFFFF, 1024);
    d.maxEntrySize = static_cast<uint8_t>(node.number("max_entry_size", c.granularity, c.maxDto - 1u, std::min(4u, c.maxDto - 1u)));
    if (d.maxEntrySize % c.granularity != 0) fail(node.key("max_entry_size"), "not a whole number of address elements");
    d.prescaler = node.flag("prescaler", true);
    const cJSON* lists = node.array("lists", 0xFC);
    if (d.dynamic && lists != nullptr) fail(node.key("lists"), "only a static configuration has fixed lists");
    if (!d.dynamic && (lists == nullptr || cJSON_GetArraySize(lists) == 0)) fail(node.key("lists"), "missing or empty");
    int index = 0;
    size_t odts = 0;
    for (const cJSON* item = lists != nullptr ? lists->child : nullptr; item != nullptr; item = item->next, ++index) {
        const Node listNode(item, indexKey(node.key("lists"), index));
        listNode.allowOnly({"odts", "entries"});
        XcpSlaveDaqList l;
        l.odts = static_cast<uint8_t>(listNode.number("odts", 1, 0xFC));
        l.entries = static_cast<uint8_t>(listNode.number("entries", 1, 0xFF));
        odts += l.odts;
        if (odts > 0xFC) fail(listNode.key("odts"), "more than 252 ODTs in all (one packet identifier each)");
        d.staticLists.push_back(l);
    }
    if (node.has("timestamp")) {
        const Node ts = node.object("timestamp");
        ts.allowOnly({"size", "unit", "ticks", "fixed"});
        d.timestampSize = static_cast<uint8_t>(ts.number("size", 0, 4, 4));
        if (d.timestampSize == 3) fail(ts.key("size"), "must be 0, 1, 2 or 4");
        d.timestampUnit = choice<uint8_t>(ts, "unit",
                                          {{"1ns", 0}, {"10ns", 1}, {"100ns", 2}, {"1us", 3}, {"10us", 4},
                                           {"100us", 5}, {"1ms", 6}, {"10ms", 7}, {"100ms", 8}, {"1s", 9}},
                                          3);
        d.timestampTicks = static_cast<uint16_t>(ts.number("ticks", 1, 0xFFFF, 1));
        d.timestampFixed = ts.flag("fixed", false);
        if (d.timestampFixed && d.timestampSize == 0) fail(ts.key("fixed"), "a fixed time stamp needs a size");
    }
}

void readIdentification(const Node& top, XcpSlaveConfig& c) {
    const cJSON* list = top.array("identification", 256);
    int index = 0;
    for (const cJSON* item = list != nullptr ? list->child : nullptr; item != nullptr; item = item->next, ++index) {
        const Node node(item, indexKey("identification", index));
        node.allowOnly({"type", "text"});
        const auto type = static_cast<uint8_t>(node.number("type", 0, 0xFF));
        if (c.identification.count(type) != 0) fail(node.key("type"), "type " + std::to_string(type) + " given twice");
        c.identification[type] = node.text("text", 4096);
    }
}

void readBehaviour(const Node& top, XcpSlaveConfig& c) {
    const cJSON* list = top.array("behaviour", 256);
    int index = 0;
    for (const cJSON* item = list != nullptr ? list->child : nullptr; item != nullptr; item = item->next, ++index) {
        const Node node(item, indexKey("behaviour", index));
        node.allowOnly({"command", "error", "silent", "delay_ms", "pending", "pending_interval_ms", "times"});
        XcpSlaveBehaviour b;
        const std::string command = node.text("command", 32);
        if (command != "*") {
            const int code = commandCode(command);
            if (code >= 0) {
                b.command = code;
            } else {
                b.command = static_cast<int>(Node::hexNumber(command.c_str(), node.key("command"), 0xC0, 0xFF));
            }
        }
        if (node.has("error")) b.error = static_cast<uint8_t>(node.number("error", 0, 0xFF));
        b.silent = node.flag("silent", false);
        b.delayMs = node.number("delay_ms", 0, 60000, 0);
        b.pending = node.number("pending", 0, 100, 0);
        b.pendingIntervalMs = node.number("pending_interval_ms", 0, 60000, 0);
        b.times = node.number("times", 0, 1000000, 0);
        const bool late = b.delayMs != 0 || b.pending != 0;
        if (b.silent && (b.error || late)) fail(node.key("silent"), "a silent command has no error and no delay");
        if (b.error && late) fail(node.key("error"), "an error answer is not delayed");
        if (b.pending > 1 && b.pendingIntervalMs == 0) fail(node.key("pending_interval_ms"), "needed for more than one event");
        if (!b.silent && !b.error && !late) fail(node.key("command"), "nothing to do: give \"error\", \"silent\", \"delay_ms\" or \"pending\"");
        c.behaviours.push_back(b);
    }
}

void readConfig(const cJSON* root, XcpSlaveConfig& c) {
    const Node top(root, "");
    top.allowOnly({"name", "can", "protocol", "protection", "memory", "segments", "events", "daq", "identification",
                   "behaviour"});
    c.name = top.has("name") ? top.text("name", 256) : "";
    readCan(top.object("can"), c);
    if (top.has("protocol")) readProtocol(top.object("protocol"), c);
    readProtection(top, c);
    readMemory(top, c);
    readEvents(top, c);
    readDaq(top, c);
    readIdentification(top, c);
    readBehaviour(top, c);
}

}  // namespace

bool parseXcpSlaveConfig(const std::string& text, const std::string& fileName, XcpSlaveConfig& config, std::string& error) {
    XcpSlaveConfig parsed;
    if (!hostbridge::jsonconfig::parseDocument(text, fileName, [&](const cJSON* root) { readConfig(root, parsed); }, error)) {
        return false;
    }
    config = std::move(parsed);
    return true;
}

bool loadXcpSlaveConfig(const std::string& path, XcpSlaveConfig& config, std::string& error) {
    std::string text;
    return hostbridge::jsonconfig::readDescription(path, text, error) && parseXcpSlaveConfig(text, path, config, error);
}

}  // namespace hostxcp
