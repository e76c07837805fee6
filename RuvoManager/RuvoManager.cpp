#include "RuvoManager/RuvoManager.h"

#include <filesystem>
#include <locale>
#include <system_error>

#include "dispatch/future_service.h"
#include "dispatch/guarded_call.h"
#include "dispatch/handler_sets.h"
#include "RuvoManager/keyboard_worker.h"
#include "host/log_interface.h"
#include "model/manager_port.h"
#include "model/revision.h"
#include "RuvoManager/ruvo_sdk.h"

namespace {

// Missing directories are made with their parents; a failure shows later, at write time.
void ensureDirectory(const std::string& path) {
    if (path.empty()) return;
    std::error_code ec;
    if (!std::filesystem::exists(path, ec)) std::filesystem::create_directories(path, ec);
}

// std::regex reads the ctype facet's narrow cache, which fills itself lazily on first use of a
// character: filled here, before any thread, so concurrent regexes (compile output, conversion)
// only read it.
const bool g_ctypeCacheFilled = [] {
    const auto& ctype = std::use_facet<std::ctype<char>>(std::locale());
    for (int c = 0; c < 256; ++c) ctype.narrow(static_cast<char>(c), '\0');
    return true;
}();

// Services and the compile driver reach the manager through the port; filled at library load,
// each slot builds the manager on first use as a direct call would.
const bool g_portInstalled = [] {
    ruvo::ManagerPort port;
    // From other threads (a compile, a service): the registry may be changing meanwhile.
    port.findApplet = [](const std::string& name) { return RuvoManager::getInstance().findAppletShared(name); };
    port.startMeasurement = [] { return ruvo_sdk::kelnStartup(); };
    port.stopMeasurement = [] { return ruvo_sdk::kelnStop(); };
    port.resetFirstFrame = [] { RuvoManager::getInstance().initRecvMessage(); };
    port.firstFrame = [](_KelnCan* out) { return RuvoManager::getInstance().getRecvMesssage(out); };
    port.createFuture = [](keln_diagnosis_service_s* service, KelnBigMessageData* message, int cycleMs,
                           int count, const std::string& key) {
        RuvoManager::getInstance().createRuvoFuture(service, message, cycleMs, count, key);
    };
    ruvo::setManagerPort(port);
    services::UiPort ui;
    ui.showBox = [] { return RuvoManager::getInstance().getKelnShowBox(); };
    ui.showRuvoBox = [] { return RuvoManager::getInstance().getKelnShowRuvoBox(); };
    ui.runSoLibrary = ruvo_sdk::runVciSoLibrary;
    services::setUiPort(ui);
    return true;
}();

}  // namespace

RuvoManager& RuvoManager::getInstance() {
    // Lives until process end: modules, threads and host callbacks may outlast static teardown.
    static std::once_flag once;
    static RuvoManager* instance = nullptr;
    std::call_once(once, [] { instance = new RuvoManager(); });
    return *instance;
}

RuvoManager::RuvoManager()
    : keyboard(new ruvo::KeyboardWorker(*this)), handlerCache(new ruvo::HandlerCache), futures(new ruvo::FutureList) {
    static ruvo::HandlerCache* cache = handlerCache.get();
    ruvo::setModelListener([] { cache->drop(); });
    MpRuvo::setModuleHooks(
        [](const std::string& name) {
            RuvoManager& m = RuvoManager::getInstance();
            m.registerLambdaCallback();
            m.dropTimers(name);  // the old module's timers go with it
        },
        [](const std::string& name) {
            RuvoManager& m = RuvoManager::getInstance();
            m.unregisterLambdaCallback(name);
            m.dropTimers(name);
        },
        [](const std::string& name) { RuvoManager::getInstance().adoptTimers(name); });
    ruvo::setFaultListener([](const std::string& name) { RuvoManager::getInstance().stopTimersOf(name); });
    registReceiver(this);
    calmasterInterface::calmasterSdk_init();
    {
        std::lock_guard<std::mutex> lock(dispatchThreadMutex);
        dispatchThreadId = std::this_thread::get_id();
    }
    recvFlag.store(false);
    recvFrame = new _KelnCan;
}

RuvoManager::~RuvoManager() {
    delete recvFrame;
    keyboard.reset();
    unRegistReceiver(this);
    applets.clear();
}

MpRuvo* RuvoManager::createApplet(const std::string& name, AppletType type) {
    std::lock_guard<std::recursive_mutex> model(ruvo::modelMutex());
    if (MpRuvo* existing = getApplet(name)) {
        log_interface::log_warn("createApplet() applet %s already exist", name.c_str());
        return existing;
    }
    auto applet = std::make_shared<MpRuvo>();
    const std::string project = getProjectPath();
    applet->setType(type);
    applet->setMpName(name);
    applet->setCodePath(project + "/" + name + "_code/");
    applet->setExportPath(project + "/" + name + "_mp/");
    ensureDirectory(applet->getCodePath());
    ensureDirectory(applet->getExportPath());
    {
        std::lock_guard<std::mutex> lock(appletsMutex);
        std::unique_lock<std::shared_mutex> readers(registryRw);
        applets[name] = applet;
    }
    ruvo::touchModel();
    return applet.get();
}

MpRuvo* RuvoManager::loadApplet(const std::string& configPath) {
    std::lock_guard<std::recursive_mutex> model(ruvo::modelMutex());
    auto applet = std::make_shared<MpRuvo>();
    std::string name;
    if (applet->deserilize(configPath)) {
        // The file lies in the code directory, which lies in the project.
        std::string project =
            std::filesystem::path(configPath).parent_path().parent_path().generic_string();
        if (project.empty()) project = ".";
        name = applet->getMpName();
        applet->setCodePath(project + "/" + name + "_code/");
        applet->setExportPath(project + "/" + name + "_mp/");
        ensureDirectory(applet->getCodePath());
        ensureDirectory(applet->getExportPath());
        {
            std::lock_guard<std::mutex> lock(appletsMutex);
            std::unique_lock<std::shared_mutex> readers(registryRw);
            applets[name] = applet;
        }
        ruvo::touchModel();
    }
    const auto it = applets.find(name);
    return it == applets.end() ? nullptr : getApplet(name);
}

void RuvoManager::deleteApplet(const std::string& name) {
    std::lock_guard<std::recursive_mutex> model(ruvo::modelMutex());
    std::shared_ptr<MpRuvo> gone;  // dropped outside the registry mutex: it may unmap a module
    {
        std::lock_guard<std::mutex> lock(appletsMutex);
        std::unique_lock<std::shared_mutex> readers(registryRw);
        const auto it = applets.find(name);
        if (it != applets.end()) {
            gone = std::move(it->second);
            applets.erase(it);
        }
    }
    ruvo::touchModel();
}

MpRuvo* RuvoManager::getApplet(const std::string& name) {
    const auto it = applets.find(name);
    return it == applets.end() ? nullptr : it->second.get();
}

MpRuvo* RuvoManager::findAppletShared(const std::string& name) {
    std::shared_lock<std::shared_mutex> lock(registryRw);
    return getApplet(name);
}

std::string RuvoManager::getAppletMainPort(const std::string& name) {
    if (applets.find(name) == applets.end()) {
        ruvo::touchModel();
        std::unique_lock<std::shared_mutex> readers(registryRw);
        applets[name];
    }
    const std::shared_ptr<MpRuvo>& applet = applets[name];
    return applet ? applet->getMainPort() : std::string();
}

std::vector<std::string> RuvoManager::getAppletNameList() {
    std::lock_guard<std::mutex> lock(appletsMutex);
    std::vector<std::string> names;
    names.reserve(applets.size());
    for (const auto& entry : applets) names.push_back(entry.first);
    return names;
}

std::map<void*, std::pair<std::string, std::string>> RuvoManager::getLoadRuvoFuns(int subType) {
    std::map<void*, std::pair<std::string, std::string>> found;
    std::lock_guard<std::recursive_mutex> model(ruvo::modelMutex());
    for (const auto& entry : applets) {
        const std::shared_ptr<MpRuvo>& applet = entry.second;
        if (!applet || !applet->isLoaded()) continue;
        const auto hold = applet->lockModel();
        for (const auto& named : applet->functions()) {
            const RuvoFunction& f = named.second;
            if (f.getSubType() != subType) continue;
            if (void* address = applet->getDllFuncAddress(f.getName())) {
                found[address] = {entry.first, f.getName()};
            }
        }
    }
    return found;
}

void RuvoManager::createRuvoFuture(keln_diagnosis_service_s* const service, KelnBigMessageData* const message,
                                   int cycleMs, int count, std::string key) {
    futures->create(service, message, cycleMs, count, key);
}

void RuvoManager::interruptRuvoFuture(std::string key) { futures->interrupt(key); }
void RuvoManager::waitRuvoFuture() { futures->wait(); }
void RuvoManager::clearRuvoFuture() { futures->clear(); }
size_t RuvoManager::ruvoFutureCount() const { return futures->size(); }
