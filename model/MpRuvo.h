#pragma once
// One applet in memory: code, name and directories, event bindings and edit mode.

#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "model/MpInfo.h"
#include "model/MpLoader.h"

typedef void (*RuvoLogCallBack)(const char* applet, KelnLogLevel level, const char* text);

class RUVO_API MpRuvo : public MpInfo {
public:
    MpRuvo();

    // Hooks the manager installs so keyboard hooks and timers follow module loads; empty by
    // default. `afterLoad` runs only when a load succeeded.
    using ModuleHook = void (*)(const std::string& appletName);
    static void setModuleHooks(ModuleHook beforeLoad, ModuleHook beforeUnload, ModuleHook afterLoad = nullptr);

    // Loads the module file from the export directory; false (reason in moduleError) if it fails.
    bool loadMp();
    // Drops this applet's keyboard callbacks first, then unloads: no callback runs into a freed
    // module.
    void destoryMp();
    bool isLoaded() const { return loader.isLoaded(); }
    void* getMpHandle() { return loader.getMpHandle(); }
    std::shared_ptr<void> modulePin() const { return loader.pin(); }
    std::vector<RuvoTimer*> moduleTimers() const { return loader.timers(); }
    void* getDllFuncAddress(const std::string& name) const { return loader.getFuncAddress(name); }
    std::string moduleError() const { return loader.lastError(); }

    // Writes the config file (to `path`, or the code directory's "appletCfg.ruvo" when empty).
    // False for an invalid applet or a failed write; a file that cannot be opened is skipped.
    bool serialize(const std::string& path);
    // Loads a config file over this applet. False if it does not open. A fault in the file
    // raises an exception naming the file and the key, and leaves the applet as it was.
    bool deserilize(const std::string& path);

    int setEditType(_RuvoEditType t) {
        const auto hold = lockModel();
        editType = t;
        return 0;
    }
    _RuvoEditType getEditType() const {
        const auto hold = lockModel();
        return editType;
    }
    void clearContent();
    void setLogCallBack(RuvoLogCallBack cb) { logCallBack = cb; }
    RuvoLogCallBack getLogCallBack() const { return logCallBack; }

    // The applet's own functions, in name order.
    std::list<RuvoFunction> getMpFuncs() const { return getFuncList(); }
    void addMpFunction(const RuvoFunction& f) { addFunc(f); }
    void removeMpFunc(const std::string& name) { deleteFuncByNode(name); }
    void clearMpFunction() { clearFuncList(); }
    // Drops every event binding and the functions behind them.
    void clearRuvoFunction();
    bool hasFunc(const std::string& name) const { return findFuncPtr(name) != nullptr; }

    // Keyboard bindings: shortcut name to its key parts.
    int insertKeyboardEvent(const std::string& key, const std::list<std::string>& parts);
    int updateKeyboardEvent(const std::string& oldKey, const std::string& newKey,
                            std::list<std::string> parts);
    void removeKeyboardEvent(std::string key);
    bool isEmptyKeyboardEvent() const {
        const auto hold = lockModel();
        return keyboardEvents.empty();
    }
    void clearKeyboardEvent();
    std::map<std::string, std::list<std::string>> getKeyboardEvents() const {
        const auto hold = lockModel();
        return keyboardEvents;
    }

    // CAN bindings: event name to CAN id.
    int insertRecvCANId(std::string key, u64 id);
    int updateRecvCANId(const std::string& oldKey, const std::string& newKey, u64 id);
    void removeRecvCANId(std::string key);
    std::map<std::string, u64> getRecvCANId() const {
        const auto hold = lockModel();
        return recvCANIds;
    }
    void clearRecvCANId();
    int insertSendCANId(std::string key, u64 id);
    int updateSendCANId(const std::string& oldKey, const std::string& newKey, u64 id);
    void removeSendCANId(std::string key);
    std::map<std::string, u64> getSendCANId() const {
        const auto hold = lockModel();
        return sendCANIds;
    }
    void clearSendCANId();
    int insertPreSendCANId(std::string key, u64 id);
    int updatePreSendCANId(const std::string& oldKey, const std::string& newKey, u64 id);
    void removePreSendCANId(std::string key);
    std::map<std::string, u64> getPreSendCANId() const {
        const auto hold = lockModel();
        return preSendCANIds;
    }
    void clearPreSendCANId();

    // Timers: name to interval. insertTimer makes no function; the SDK call does.
    int insertTimer(const std::string& key, u64 interval);
    int updateTimer(const std::string& oldKey, const std::string& newKey, u64 interval);
    void removeTimer(const std::string& key);
    u64 getTimerInterval(const std::string& key) const;
    // The map itself: hold lockModel() while using it on a thread other than the editor's.
    std::map<std::string, u64>& getTimers() { return timers; }
    void clearTimers();

    void clearStartEvents();
    void clearStopEvents();

    // Generated sources into the code directory (or `path`, which must end in a separator).
    // False, with nothing written, when the functions depend on each other in a circle.
    bool generateSingleCodeFile(const std::string& path);
    bool generateCodeFiles(const std::string& path);
    bool generateSingleAndMultiCodeFiles(const std::string& path);
    bool generateCombineCodeFile(const std::string& path);

    void insertAdditions(std::string funcPrefix, std::string key, u64 value);
    void insertAdditions(std::string funcPrefix, std::string key, std::list<std::string> parts);

private:
    bool serilize(std::string& text) const;
    // False when the text is not JSON (the applet then loads as invalid).
    bool deseralize(const std::string& text);
    void serilizeKeyboardEvents(cJSON* root) const;
    void serilizeRecvCANIds(cJSON* root) const;
    void serilizeSendCANIds(cJSON* root) const;
    void serilizePreSendCANIds(cJSON* root) const;
    void serilizeTimers(cJSON* root) const;
    using KeyEntries = std::vector<std::pair<std::string, std::list<std::string>>>;
    // Reads the shortcut bindings of the file without storing them.
    bool deseralizeKeyboardEvents(const cJSON* root, KeyEntries& out);

    enum class Layout { Single, Multi, SingleAndMulti, Combined };
    bool writeGeneratedFiles(Layout layout, const std::string& path);

    int insertCanBinding(std::map<std::string, u64>& map, const char* prefix, _RuvoFuncType subType,
                         const std::string& key, u64 id);
    int updateCanBinding(std::map<std::string, u64>& map, const char* prefix, const std::string& oldKey,
                         const std::string& newKey, u64 id);
    void removeCanBinding(std::map<std::string, u64>& map, const std::string& key);
    void clearCanBindings(std::map<std::string, u64>& map, _RuvoFuncType subType);
    void removeFunctionsOfSubType(int subType);

    MpLoader loader;
    std::map<std::string, std::list<std::string>> keyboardEvents;
    std::map<std::string, u64> recvCANIds;
    std::map<std::string, u64> sendCANIds;
    std::map<std::string, u64> preSendCANIds;
    std::map<std::string, u64> timers;
    _RuvoEditType editType = RET_PER_FUNCTION;
    RuvoLogCallBack logCallBack = nullptr;
};
