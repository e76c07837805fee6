#pragma once
// The process-wide registry of applets and the host's bus listener.

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "host/sdk_receiver.h"
#include "model/MpRuvo.h"
#include "model/dbc_info.h"
#include "services/services.h"

// The host's user interface: message boxes, applet boxes and closing an applet's box.
using KelnShowBoxCallback = services::ShowBoxCallback;
using KelnShowRuvoBoxCallback = services::ShowRuvoBoxCallback;
using KelnCloseRuvoBoxCallback = services::CloseRuvoBoxCallback;

namespace ruvo {
class KeyboardWorker;
class HandlerCache;
class FutureList;
}

class RUVO_API RuvoManager : public ISDKReceiver {
public:
    static RuvoManager& getInstance();

    RuvoManager(const RuvoManager&) = delete;
    RuvoManager& operator=(const RuvoManager&) = delete;

    // An existing name returns the existing applet and ignores `type`.
    MpRuvo* createApplet(const std::string& name, AppletType type);
    // Loads a config file and registers the applet under the file's "name"; null on failure.
    MpRuvo* loadApplet(const std::string& configPath);
    void deleteApplet(const std::string& name);
    MpRuvo* getApplet(const std::string& name);
    // getApplet for other threads: safe against a registry change under way.
    MpRuvo* findAppletShared(const std::string& name);
    // Creates an empty registry entry for an unknown name, as callers of this query expect.
    std::string getAppletMainPort(const std::string& name);
    void setProjectPath(const std::string& path) { projectPath = path; }
    std::string getProjectPath() const { return projectPath; }
    std::vector<std::string> getAppletNameList();
    // Exported handlers of loaded applets of one sub type: address to (applet, function).
    std::map<void*, std::pair<std::string, std::string>> getLoadRuvoFuns(int subType);

    // The one-frame slot behind wait_can_msg: the first frame of the latest batch.
    void initRecvMessage();
    bool getRecvMesssage(_KelnCan*& out);
    // The thread of the latest onPackageRecv (at first, the thread that built the manager).
    std::thread::id getThreadId();

    // The keyboard hook is held from the first module load until no loaded applet has key
    // bindings; key events are matched and handled on the keyboard worker.
    void registerLambdaCallback();
    void unregisterLambdaCallback(std::string appletName);
    // Until the keyboard worker has handled every queued key event (at most 5 s).
    void waitKeyboardIdle();
    // True between measurement start and stop; applets' timers run meanwhile.
    bool isMeasuring() const { return measuring.load(); }
    int formatFile(const char*) { return 0; }

    // The cyclic diagnostic sends of send_uds_async; see ruvo::FutureList.
    void createRuvoFuture(keln_diagnosis_service_s* const service, KelnBigMessageData* const message,
                          int cycleMs, int count, std::string key);
    void interruptRuvoFuture(std::string key);
    void waitRuvoFuture();
    void clearRuvoFuture();
    size_t ruvoFutureCount() const;

    // The host's UI callbacks, held once for all applets; null until registered.
    void setKelnShowBox(const KelnShowBoxCallback& cb) { showBox.store(cb); }
    KelnShowBoxCallback getKelnShowBox() const { return showBox.load(); }
    void setKelnShowRuvoBox(const KelnShowRuvoBoxCallback& cb) { showRuvoBox.store(cb); }
    KelnShowRuvoBoxCallback getKelnShowRuvoBox() const { return showRuvoBox.load(); }
    void setKelnCloseRuvoBox(const KelnCloseRuvoBoxCallback& cb) { closeRuvoBox.store(cb); }
    KelnCloseRuvoBoxCallback getKelnCloseRuvoBox() const { return closeRuvoBox.load(); }

    // The index of the CAN messages of the workstation's bus databases, and the generated
    // "database.h" kept in step with it. Called from the host's editing thread; readers don't run
    // meanwhile. A null name is taken as empty.
    void updateRuvoDbcInfo(int op, int channel, const char* name);
    const RuvoDbcInfo& getRuvoDbcInfo() const { return dbcInfo; }
    int getAppletDbcInfoCount() const;
    int fillAppletDbcInfos(RuvoFunction* out, unsigned capacity) const;
    std::string resolveDbcMarkerName(const std::string& name) const;
    int fillAppletDbcInfoMap(std::map<int, std::vector<dbcMessageInfoStruct>>& out, int channel,
                             const std::string& filter) const;
    bool getAppletDbcMessageSignals(int channel, const std::string& database, u32 id,
                                    std::vector<std::string>& out) const;
    // Messages with a signal whose name holds `filter`, case-insensitively.
    void findAppletDbcMessagesBySignalFilter(const std::string& filter,
                                             std::vector<std::tuple<int, std::string, u32>>& out) const;

    // ISDKReceiver
    void beforeStartup() override;
    void onStartup(std::list<int> channels, std::list<int> devices) override;
    void onShutdown() override;
    void onFindDeviceSuccess(const std::map<DevType, int>& devices) override;
    void onPackageRecv(const CanPackage* packages, int count) override;
    void onSortPackageRecv(const CanPackage* packages, int count) override;
    void prePackageSend(std::list<CanPackage>& packages) override;

private:
    friend class ruvo::KeyboardWorker;  // walks the registry under its mutex
    RuvoManager();
    ~RuvoManager() override;

    struct Source;
    struct AppletTimers {
        std::shared_ptr<void> pin;  // the timers live in the module
        std::vector<RuvoTimer*> timers;
    };
    void adoptTimers(const std::string& applet);
    void dropTimers(const std::string& applet);
    void stopTimersOf(const std::string& applet);
    void runTimers(bool run);

    std::map<std::string, std::shared_ptr<MpRuvo>> applets;
    std::string projectPath;
    std::mutex appletsMutex;
    // Guards the map for lookups from other threads (compiles, services on applet threads),
    // which may not take appletsMutex: a key handler's service call runs while it is held.
    std::shared_mutex registryRw;
    std::thread::id dispatchThreadId;
    std::mutex dispatchThreadMutex;
    std::atomic<bool> recvFlag{false};
    _KelnCan* recvFrame = nullptr;
    std::mutex recvMutex;
    std::unique_ptr<ruvo::KeyboardWorker> keyboard;
    std::unique_ptr<ruvo::HandlerCache> handlerCache;
    std::unique_ptr<ruvo::FutureList> futures;
    std::map<std::string, AppletTimers> timerSets;
    std::mutex timerMutex;
    std::atomic<bool> measuring{false};
    // Atomic only so that a late registration is not a data race with an applet's thread.
    std::atomic<KelnShowBoxCallback> showBox{nullptr};
    std::atomic<KelnShowRuvoBoxCallback> showRuvoBox{nullptr};
    std::atomic<KelnCloseRuvoBoxCallback> closeRuvoBox{nullptr};
    RuvoDbcInfo dbcInfo;
};
