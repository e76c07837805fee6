#include "model/MpRuvo.h"

#include <cjson/cJSON.h>

#include <atomic>
#include <cstdio>
#include <stdexcept>

#include "host/log_interface.h"
#include "model/json_util.h"
#include "model/names.h"
#include "model/revision.h"
#include "model/text_file.h"
#include "model/type_names.h"

namespace {

const char* const kRecvPrefix = "on_can_rx_";
const char* const kPreSendPrefix = "on_can_pretx_";
const char* const kSendPrefix = "on_can_tx_";
const char* const kShortcutPrefix = "on_shortcut_";
// A rename writes this tail; "0x123" is literal template text, not the bound id.
const char* const kRenamedCanTail = "(const PKelnCan ACAN) { try { // 针对标识符 = 0x123";
const char* const kRenamedKeyTail = "(const s32 AShortcut) { try { // 快捷键 ";

std::string timerFunName(const std::string& key) { return "on_" + key + "_timer"; }

void addIdArray(cJSON* root, const char* key, const std::map<std::string, u64>& map) {
    cJSON* array = cJSON_CreateArray();
    for (const auto& entry : map) {
        const std::string text = entry.first + ":" + std::to_string(entry.second);
        cJSON_AddItemToArray(array, cJSON_CreateString(text.c_str()));
    }
    cJSON_AddItemToObject(root, key, array);
}

using IdEntries = std::vector<std::pair<std::string, u64>>;

// "key:value" entries, read in full before any of them is stored. The value goes through
// stoll and so raises the standard conversion errors for a malformed entry.
bool readIdArray(const cJSON* root, const char* key, IdEntries& out) {
    const cJSON* array = cJSON_GetObjectItem(root, key);
    if (array == nullptr) return false;
    ruvo::arrayOf(array, key, "applet");
    ruvo::forEachItem(array, [&](const cJSON* item) {
        if (!cJSON_IsString(item) || item->valuestring == nullptr) {
            throw ruvo::ConfigError(std::string("key \"") + key + "\" holds a non-string");
        }
        const std::string entry = item->valuestring;
        const size_t colon = entry.find(':');
        std::string left = entry.substr(0, colon);
        const std::string right = colon == std::string::npos ? std::string() : entry.substr(colon + 1);
        long long value = 0;
        try {
            value = std::stoll(right, nullptr, 10);
        } catch (const std::invalid_argument&) {
            throw std::invalid_argument(std::string("key \"") + key + "\": entry \"" +
                                        ruvo::clipped(entry) + "\" has no number after ':' (stoll)");
        } catch (const std::out_of_range&) {
            throw std::out_of_range(std::string("key \"") + key + "\": entry \"" +
                                    ruvo::clipped(entry) + "\" is out of range (stoll)");
        }
        if (value < 0) {
            throw std::out_of_range(std::string("key \"") + key + "\": entry \"" +
                                    ruvo::clipped(entry) + "\" is negative");
        }
        const std::string problem = ruvo::nameProblem(ruvo::NameKind::BindingKey, left);
        if (!problem.empty()) {
            throw ruvo::ConfigError(std::string("key \"") + key + "\": invalid binding key name \"" +
                                    ruvo::clipped(left) + "\": " + problem);
        }
        out.emplace_back(std::move(left), static_cast<u64>(value));
    });
    return true;
}

void addEntries(std::map<std::string, u64>& map, const IdEntries& entries) {
    for (const auto& e : entries) map[e.first] = e.second;
}

std::string hexLower(u64 value) {
    char buffer[32];
    std::snprintf(buffer, sizeof(buffer), "%llx", static_cast<unsigned long long>(value));
    return buffer;
}

}  // namespace

namespace {
std::atomic<MpRuvo::ModuleHook> g_beforeLoad{nullptr};
std::atomic<MpRuvo::ModuleHook> g_beforeUnload{nullptr};
std::atomic<MpRuvo::ModuleHook> g_afterLoad{nullptr};
}  // namespace

MpRuvo::MpRuvo() : MpInfo(AT_INVALID) {}

void MpRuvo::setModuleHooks(ModuleHook beforeLoad, ModuleHook beforeUnload, ModuleHook afterLoad) {
    g_beforeLoad.store(beforeLoad);
    g_beforeUnload.store(beforeUnload);
    g_afterLoad.store(afterLoad);
}

bool MpRuvo::loadMp() {
    if (ModuleHook hook = g_beforeLoad.load()) hook(getMpName());
    // Dispatch lets go of the old module first, so a recompiled file is really mapped anew.
    ruvo::touchModel();
    const bool loaded = loader.loadMp(getMpDllFullPath());
    ruvo::touchModel();
    if (ModuleHook hook = g_afterLoad.load(); hook != nullptr && loaded) hook(getMpName());
    return loaded;
}

void MpRuvo::destoryMp() {
    if (ModuleHook hook = g_beforeUnload.load()) hook(getMpName());
    ruvo::touchModel();
    loader.destoryMp();
}

void MpRuvo::clearContent() {
    const auto hold = lockModel();
    if (isValid()) InitCode();
}

// ---- config file ----

bool MpRuvo::serilize(std::string& text) const {
    const auto hold = lockModel();
    ruvo::JsonPtr root(cJSON_CreateObject());
    if (!root) return false;
    MpInfo::serilize(root.get());
    cJSON_AddNumberToObject(root.get(), "editType", editType);
    serilizeKeyboardEvents(root.get());
    serilizeRecvCANIds(root.get());
    serilizeSendCANIds(root.get());
    serilizePreSendCANIds(root.get());
    serilizeTimers(root.get());
    text = ruvo::printJson(root.get());
    return !text.empty();
}

void MpRuvo::serilizeKeyboardEvents(cJSON* root) const {
    cJSON* events = cJSON_CreateObject();
    for (const auto& entry : keyboardEvents) {
        cJSON* parts = cJSON_CreateArray();
        for (const auto& p : entry.second) cJSON_AddItemToArray(parts, cJSON_CreateString(p.c_str()));
        cJSON_AddItemToObject(events, entry.first.c_str(), parts);
    }
    cJSON_AddItemToObject(root, "keyboardEvents", events);
}

void MpRuvo::serilizeRecvCANIds(cJSON* root) const { addIdArray(root, "recvCANIds", recvCANIds); }
void MpRuvo::serilizeSendCANIds(cJSON* root) const { addIdArray(root, "sendCANIds", sendCANIds); }
void MpRuvo::serilizePreSendCANIds(cJSON* root) const {
    addIdArray(root, "preSendCANIds", preSendCANIds);
}
void MpRuvo::serilizeTimers(cJSON* root) const { addIdArray(root, "timers", timers); }

bool MpRuvo::serialize(const std::string& path) {
    if (!isValid()) return false;
    std::string text;
    if (!serilize(text)) return false;
    const std::string target = path.empty() ? getCodePath() + "appletCfg.ruvo" : path;
    if (path.empty() && ruvo::isLinkedDirectory(getCodePath())) {
        log_interface::log_error("serialize(): refusing to write into %s: it is a symbolic link",
                                 getCodePath().c_str());
        return false;
    }
    std::string error;
    switch (ruvo::writeFileAtomically(target, text, error)) {
        case ruvo::WriteResult::Written:
            return true;
        case ruvo::WriteResult::OpenFailed:
            // The caller is told success for a file that cannot be opened; say why here.
            log_interface::log_warn("serialize(): %s", error.c_str());
            return true;
        case ruvo::WriteResult::WriteFailed:
            log_interface::log_error("serialize(): %s", error.c_str());
            return false;
    }
    return false;
}

bool MpRuvo::deseralize(const std::string& text) {
    ruvo::JsonPtr root(cJSON_Parse(text.c_str()));
    if (!root) {
        MpInfo::deseralize(nullptr);
        return false;
    }
    // Whole-file checks first: the text is UTF-8 (one fast pass; the tree is searched for the
    // key only when it is not) and no object names a key twice.
    const bool textIsUtf8 = ruvo::isValidUtf8(text.data(), text.size());
    ruvo::checkTree(root.get(), "keyboardEvents", !textIsUtf8);
    if (!textIsUtf8) throw ruvo::ConfigError("the text is not valid UTF-8");

    // Everything is read before anything is stored: a fault leaves the applet as it was.
    const cJSON* edit = cJSON_GetObjectItem(root.get(), "editType");
    const int newEditType = edit ? ruvo::intOf(edit, "editType", "applet") : 0;
    std::vector<std::pair<std::string, std::list<std::string>>> keys;
    deseralizeKeyboardEvents(root.get(), keys);
    IdEntries recv, send, preSend, timerEntries;
    readIdArray(root.get(), "recvCANIds", recv);
    readIdArray(root.get(), "sendCANIds", send);
    readIdArray(root.get(), "preSendCANIds", preSend);
    readIdArray(root.get(), "timers", timerEntries);
    MpInfo::deseralize(root.get());

    if (edit != nullptr) editType = static_cast<_RuvoEditType>(newEditType);
    for (auto& k : keys) {
        if (k.second.empty()) continue;  // a key with no parts adds no entry
        auto& parts = keyboardEvents[k.first];
        parts.splice(parts.end(), k.second);
    }
    addEntries(recvCANIds, recv);
    addEntries(sendCANIds, send);
    addEntries(preSendCANIds, preSend);
    addEntries(timers, timerEntries);
    return true;
}

bool MpRuvo::deseralizeKeyboardEvents(const cJSON* root, KeyEntries& out) {
    const cJSON* events = cJSON_GetObjectItem(root, "keyboardEvents");
    if (events == nullptr) return false;
    if (!cJSON_IsObject(events)) throw ruvo::ConfigError("key \"keyboardEvents\" is not an object");
    for (const cJSON* member = events->child; member != nullptr; member = member->next) {
        if (member->string == nullptr) continue;
        const std::string key = member->string;
        const std::string problem = ruvo::nameProblem(ruvo::NameKind::BindingKey, key);
        if (!problem.empty()) {
            throw ruvo::ConfigError("key \"keyboardEvents\": invalid binding key name \"" +
                                    ruvo::clipped(key) + "\": " + problem);
        }
        if (!cJSON_IsArray(member)) {
            throw ruvo::ConfigError("key \"keyboardEvents\": \"" + key + "\" is not an array");
        }
        std::list<std::string> parts;
        ruvo::forEachItem(member, [&](const cJSON* part) {
            if (!cJSON_IsString(part) || part->valuestring == nullptr) {
                throw ruvo::ConfigError("key \"keyboardEvents\": \"" + key + "\" holds a non-string");
            }
            parts.emplace_back(part->valuestring);
        });
        out.emplace_back(key, std::move(parts));
    }
    return true;
}

bool MpRuvo::deserilize(const std::string& path) {
    const auto hold = lockModel();
    std::string text;
    if (!ruvo::readWholeFile(path, text)) return false;
    ruvo::touchModel();
    try {
        if (!deseralize(text)) {
            const char* near = cJSON_GetErrorPtr();
            log_interface::log_error("%s is not valid JSON (near \"%.32s\"); the applet is invalid",
                                     path.c_str(), near ? near : "");
        }
    } catch (const ruvo::ConfigError& e) {
        throw ruvo::ConfigError(path + ": " + e.what());
    } catch (const std::invalid_argument& e) {
        throw std::invalid_argument(path + ": " + e.what());
    } catch (const std::out_of_range& e) {
        throw std::out_of_range(path + ": " + e.what());
    }
    ruvo::touchModel();
    return true;
}

// ---- bindings ----

void MpRuvo::insertAdditions(std::string funcPrefix, std::string key, u64 value) {
    const auto hold = lockModel();
    if (!isValid()) return;
    if (RuvoFunction* f = findFuncPtr(funcPrefix + key)) f->setAdditions({key, hexLower(value)});
}

void MpRuvo::insertAdditions(std::string funcPrefix, std::string key, std::list<std::string> parts) {
    const auto hold = lockModel();
    if (!isValid()) return;
    RuvoFunction* f = findFuncPtr(funcPrefix + key);
    if (f == nullptr) return;
    std::string joined;
    for (const auto& p : parts) {
        if (!joined.empty()) joined += "+";
        joined += p;
    }
    f->setAdditions({key, joined});
}

int MpRuvo::insertCanBinding(std::map<std::string, u64>& map, const char* prefix,
                             _RuvoFuncType subType, const std::string& key, u64 id) {
    const auto hold = lockModel();
    ruvo::touchModel();
    map.erase(key);
    map.emplace(key, id);
    const RuvoFunction f = createFunc(prefix + key, subType, {});
    if (!f.isValid()) return -1;
    addMpFunction(f);
    insertAdditions(prefix, key, id);
    return 0;
}

int MpRuvo::updateCanBinding(std::map<std::string, u64>& map, const char* prefix,
                             const std::string& oldKey, const std::string& newKey, u64 id) {
    const auto hold = lockModel();
    ruvo::touchModel();
    auto entry = map.find(oldKey);
    if (entry == map.end()) return -1;
    RuvoFunction* old = findFuncPtr(prefix + oldKey);
    if (old != nullptr) old->clearAdditions();
    if (oldKey == newKey) {
        entry->second = id;
    } else {
        map.erase(entry);
        map.emplace(newKey, id);
        if (old != nullptr) {
            RuvoFunction copy = *old;
            removeMpFunc(prefix + oldKey);
            copy.setName(prefix + newKey);
            copy.setForwardCode("void " + copy.getName() + kRenamedCanTail);
            addMpFunction(copy);
        }
    }
    insertAdditions(prefix, newKey, id);
    return 0;
}

void MpRuvo::removeCanBinding(std::map<std::string, u64>& map, const std::string& key) {
    const auto hold = lockModel();
    map.erase(key);
    ruvo::touchModel();
    // By the key, not the function name: the event function stays unless the caller names it.
    removeMpFunc(key);
}

void MpRuvo::clearCanBindings(std::map<std::string, u64>& map, _RuvoFuncType subType) {
    const auto hold = lockModel();
    for (const auto& entry : map) removeMpFunc(keyToFunName(entry.first, subType));
    map.clear();
    ruvo::touchModel();
}

int MpRuvo::insertRecvCANId(std::string key, u64 id) {
    return insertCanBinding(recvCANIds, kRecvPrefix, RFT_CAN_RECV, key, id);
}
int MpRuvo::updateRecvCANId(const std::string& oldKey, const std::string& newKey, u64 id) {
    return updateCanBinding(recvCANIds, kRecvPrefix, oldKey, newKey, id);
}
void MpRuvo::removeRecvCANId(std::string key) { removeCanBinding(recvCANIds, key); }
void MpRuvo::clearRecvCANId() { clearCanBindings(recvCANIds, RFT_CAN_RECV); }

int MpRuvo::insertSendCANId(std::string key, u64 id) {
    return insertCanBinding(sendCANIds, kSendPrefix, RFT_CAN_SEND, key, id);
}
int MpRuvo::updateSendCANId(const std::string& oldKey, const std::string& newKey, u64 id) {
    return updateCanBinding(sendCANIds, kSendPrefix, oldKey, newKey, id);
}
void MpRuvo::removeSendCANId(std::string key) { removeCanBinding(sendCANIds, key); }
void MpRuvo::clearSendCANId() { clearCanBindings(sendCANIds, RFT_CAN_SEND); }

int MpRuvo::insertPreSendCANId(std::string key, u64 id) {
    return insertCanBinding(preSendCANIds, kPreSendPrefix, RFT_CAN_PRE_SEND, key, id);
}
int MpRuvo::updatePreSendCANId(const std::string& oldKey, const std::string& newKey, u64 id) {
    return updateCanBinding(preSendCANIds, kPreSendPrefix, oldKey, newKey, id);
}
void MpRuvo::removePreSendCANId(std::string key) { removeCanBinding(preSendCANIds, key); }
void MpRuvo::clearPreSendCANId() { clearCanBindings(preSendCANIds, RFT_CAN_PRE_SEND); }

int MpRuvo::insertKeyboardEvent(const std::string& key, const std::list<std::string>& parts) {
    const auto hold = lockModel();
    keyboardEvents.emplace(key, parts);  // a present key keeps its old parts
    const RuvoFunction f = createFunc(kShortcutPrefix + key, RFT_KEYBOARD, {});
    if (!f.isValid()) return -1;
    addMpFunction(f);
    insertAdditions(kShortcutPrefix, key, parts);
    return 0;
}

int MpRuvo::updateKeyboardEvent(const std::string& oldKey, const std::string& newKey,
                                std::list<std::string> parts) {
    const auto hold = lockModel();
    if (keyboardEvents.find(oldKey) == keyboardEvents.end()) return -1;
    removeKeyboardEvent(oldKey);
    if (const RuvoFunction* old = findFuncPtr(kShortcutPrefix + oldKey)) {
        RuvoFunction copy = *old;
        removeMpFunc(kShortcutPrefix + oldKey);
        copy.setName(kShortcutPrefix + newKey);
        copy.setForwardCode("void " + copy.getName() + kRenamedKeyTail);
        copy.clearAdditions();
        addMpFunction(copy);
    }
    // The insert makes a fresh function over the copy: the old body is not kept.
    insertKeyboardEvent(newKey, parts);
    return 0;
}

void MpRuvo::removeKeyboardEvent(std::string key) {
    const auto hold = lockModel();
    keyboardEvents.erase(key);
    removeMpFunc(key);
}

void MpRuvo::clearKeyboardEvent() {
    const auto hold = lockModel();
    std::vector<std::string> keys;
    for (const auto& entry : keyboardEvents) keys.push_back(entry.first);
    for (const auto& key : keys) {
        keyboardEvents.erase(key);
        removeMpFunc(keyToFunName(key, RFT_KEYBOARD));
    }
}

int MpRuvo::insertTimer(const std::string& key, u64 interval) {
    const auto hold = lockModel();
    timers[key] = interval;
    return 0;
}

int MpRuvo::updateTimer(const std::string& oldKey, const std::string& newKey, u64 interval) {
    const auto hold = lockModel();
    if (timers.find(oldKey) == timers.end()) return -1;
    timers.erase(oldKey);
    timers.emplace(newKey, interval);
    const RuvoFunction* old = findFuncPtr(timerFunName(oldKey));
    if (old == nullptr) return 0;
    RuvoFunction copy = *old;
    std::vector<std::string> additions = copy.getAdditions();
    removeMpFunc(timerFunName(oldKey));
    copy.setName(timerFunName(newKey));
    if (additions.size() >= 2) {
        additions[0] = newKey;
        additions[1] = std::to_string(interval);
    }
    copy.setAdditions(additions);
    addMpFunction(copy);
    return 0;
}

void MpRuvo::removeTimer(const std::string& key) {
    const auto hold = lockModel();
    timers.erase(key);
    removeMpFunc(timerFunName(key));
}

u64 MpRuvo::getTimerInterval(const std::string& key) const {
    const auto hold = lockModel();
    const auto it = timers.find(key);
    return it == timers.end() ? 0 : it->second;
}

void MpRuvo::clearTimers() {
    const auto hold = lockModel();
    // A copy: removeTimer erases the map node the key would otherwise refer to.
    while (!timers.empty()) removeTimer(std::string(timers.begin()->first));
}

void MpRuvo::removeFunctionsOfSubType(int subType) {
    const auto hold = lockModel();
    for (const auto& f : getFuncList()) {
        if (f.getSubType() == subType) removeMpFunc(f.getName());
    }
}

void MpRuvo::clearStartEvents() { removeFunctionsOfSubType(RFT_PREV_EVENT); }
void MpRuvo::clearStopEvents() { removeFunctionsOfSubType(RFT_POST_EVENT); }

void MpRuvo::clearRuvoFunction() {
    const auto hold = lockModel();
    clearKeyboardEvent();
    clearRecvCANId();
    clearSendCANId();
    clearPreSendCANId();
    clearTimers();
}
