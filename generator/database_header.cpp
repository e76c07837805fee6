#include "generator/database_header.h"

#include "host/can_dlc.h"

namespace ruvo::database_header {

namespace {

constexpr const char* kCanMark = "// CAN Database";
constexpr const char* kLinMark = "// LIN Databases";
constexpr size_t kBufferReserve = 524288;
constexpr int kMessagesPerFlush = 100;

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
    size_t at = 0;
    while ((at = text.find(from, at)) != std::string::npos) {
        text.replace(at, from.size(), to);
        at += to.size();
    }
}

std::string readText(const std::string& path) {
    std::string text;
    ruvo::readWholeFile(path, text);
    return text;
}

class Buffer {
public:
    explicit Buffer(const TextSink& out) : out_(out) { text_.reserve(kBufferReserve); }
    void append(const std::string& s) { text_ += s; }
    void countMessage() {
        if (++count_ >= kMessagesPerFlush) flush();
    }
    void flush() {
        if (text_.empty()) return;
        out_(text_.data(), text_.size());
        text_.clear();
        count_ = 0;
    }

private:
    const TextSink& out_;
    std::string text_;
    int count_ = 0;
};

std::string record(const RuvoDbcMessage& m, int channel, const std::string& dbcName,
                   const std::string& propertyTemplate, const std::string& recordTemplate) {
    std::string properties;
    properties.reserve(100 * m.signals.size());
    for (const RuvoDbcSignal& s : m.signals) {
        std::string p = propertyTemplate;
        replaceAll(p, "#type#", "double");
        replaceAll(p, "#name#", s.name);
        properties += p;
        properties += '\n';
    }
    std::string text = recordTemplate;
    // First, so that a property template may use the record's placeholders too; names never hold '#'.
    replaceAll(text, "#property_list#", properties);
    replaceAll(text, "#dbcName#", dbcName);
    if (m.type == 'C' || m.type == 'F') {
        replaceAll(text, "#init_isCanFd#", m.type == 'F' ? "init_canfd" : "init_can");
        replaceAll(text, "#isCanFd#", m.type == 'F' ? "true" : "false");
    }
    replaceAll(text, "#prefix#", m.name);
    replaceAll(text, "#num#", std::to_string(channel + 1));
    replaceAll(text, "#msgid#", std::to_string(m.id));
    replaceAll(text, "#dlc_val#", std::to_string(hostbridge::lengthToDlc(m.length)));
    replaceAll(text, "#tunnel_val#", std::to_string(channel));
    return text;
}

}  // namespace

void generateSections(const TextSink& out, const RuvoDbcInfo& info, int channel, const std::string& filter,
                      const std::string& propertyTemplate, const std::string& recordTemplate) {
    Buffer buffer(out);
    for (const auto& [c, bound] : info.channels) {
        if (channel >= 0 && c != channel) continue;
        for (const std::string& database : bound.databases) {
            const std::string marker = dbcMarkerOf(info, database);
            if (!dbcFilterPasses(filter, database, marker)) continue;
            const auto content = info.contents.find(database);
            if (content == info.contents.end()) continue;
            const std::string section = marker + "_" + std::to_string(c);
            buffer.append("// " + section + "_Begin\n");
            buffer.flush();
            for (const RuvoDbcMessage& m : content->second) {
                buffer.append(record(m, c, marker, propertyTemplate, recordTemplate));
                buffer.append("\n");
                buffer.countMessage();
            }
            buffer.append("// " + section + "_End\n");
            buffer.flush();
        }
    }
    buffer.flush();
}

bool removeSection(std::string& text, const std::string& name) {
    const size_t begin = text.find("// " + name + "_Begin");
    if (begin == std::string::npos) return false;
    const size_t end = text.find("// " + name + "_End", begin);
    if (end == std::string::npos) return false;
    const size_t lineEnd = text.find('\n', end);
    text.erase(begin, lineEnd == std::string::npos ? std::string::npos : lineEnd + 1 - begin);
    return true;
}

void removeSections(std::string& text, const std::vector<std::string>& names) {
    for (bool removed = true; removed;) {
        removed = false;
        for (const std::string& name : names) {
            if (removeSection(text, name)) {
                removed = true;
                break;
            }
        }
    }
}

namespace {

void put(const TextSink& out, const std::string& text, size_t from = 0, size_t to = std::string::npos) {
    if (to == std::string::npos) to = text.size();
    out(text.data() + from, to - from);
}

void replaceFile(const std::string& path, const TextProducer& produce) {
    std::string ignored;  // the header's update reports nothing
    writeFileAtomically(path, produce, ignored);
}

}  // namespace

void update(const std::string& includeRoot, const RuvoDbcInfo& info, int op, int channel,
            const std::string& database, const std::string& marker) {
    if (op == DBC_OP_ADD && database.empty()) op = DBC_OP_REFRESH;
    if (op == DBC_OP_CHANGE && (database.empty() || channel < 0)) return;

    const std::string dir = includeRoot + "/RuvoManager/inc/";
    const std::string path = dir + "database.h";
    std::string text;
    if (!ruvo::readWholeFile(path, text)) return;
    const size_t can = text.find(kCanMark);
    const size_t lin = text.find(kLinMark);
    if (can == std::string::npos || lin == std::string::npos || lin < can) return;
    const size_t canLineEnd = text.find('\n', can);
    const std::string head = canLineEnd == std::string::npos ? text : text.substr(0, canLineEnd + 1);
    const std::string tail = text.substr(lin);
    const auto templates = [&dir](std::string& property, std::string& record) {
        property = readText(dir + "declare_property.template");
        record = readText(dir + "define_can_struct.template");
    };

    const std::string ch = "_" + std::to_string(channel);
    const std::string resolved = resolveDbcMarker(info, database);
    switch (op) {
    case DBC_OP_ADD: {
        if (channel < 0) return;
        std::vector<std::string> names = {resolved + ch, database + ch};
        if (!marker.empty() && marker != resolved) names.push_back(marker + ch);
        removeSections(text, names);
        const size_t mark = text.find(kLinMark);
        if (mark == std::string::npos) return;
        std::string property, record;
        templates(property, record);
        replaceFile(path, [&](const TextSink& out) {
            put(out, text, 0, mark);
            generateSections(out, info, channel, database, property, record);
            put(out, text, mark);
        });
        return;
    }
    case DBC_OP_CHANGE: {
        std::vector<std::string> names;
        if (!marker.empty()) names.push_back(marker + ch);
        names.push_back(resolved + ch);
        if (database != marker) names.push_back(database + ch);
        removeSections(text, names);
        replaceFile(path, [&](const TextSink& out) { put(out, text); });
        return;
    }
    case DBC_OP_REMOVE:
        replaceFile(path, [&](const TextSink& out) {
            put(out, head);
            put(out, tail);
        });
        return;
    default: {
        std::string property, record;
        templates(property, record);
        replaceFile(path, [&](const TextSink& out) {
            put(out, head);
            generateSections(out, info, -1, "", property, record);
            put(out, tail);
        });
    }
    }
}

}  // namespace ruvo::database_header
