// The manager as the host's bus listener: frames, pre-send rewrites, measurement start and
// stop, the one-frame slot, and starting and stopping the measurement.

#include <set>

#include "RuvoManager/RuvoManager.h"
#include "RuvoManager/ruvo_sdk.h"
#include "model/frame_convert.h"
#include "dispatch/handler_sets.h"
#include "host/workstation.h"

using ruvo::FrameConverter;

struct RuvoManager::Source : ruvo::HandlerSource {
    explicit Source(RuvoManager& m) : manager(m) {}
    ruvo::HandlerMap handlersOf(int subType) override { return manager.getLoadRuvoFuns(subType); }
    bool idsOf(const std::string& name, int subType, std::map<std::string, u64>& out) override {
        MpRuvo* applet = manager.getApplet(name);
        if (applet == nullptr) return false;
        out = subType == RFT_CAN_RECV   ? applet->getRecvCANId()
              : subType == RFT_CAN_SEND ? applet->getSendCANId()
                                        : applet->getPreSendCANId();
        return true;
    }
    std::shared_ptr<void> modulePin(const std::string& name) override {
        MpRuvo* applet = manager.getApplet(name);
        return applet ? applet->modulePin() : nullptr;
    }
    RuvoManager& manager;
};

void RuvoManager::initRecvMessage() {
    recvFlag.store(false);
    if (recvFrame != nullptr) *recvFrame = _KelnCan{};
}

bool RuvoManager::getRecvMesssage(_KelnCan*& out) {
    std::lock_guard<std::mutex> lock(recvMutex);
    if (!recvFlag.load() || recvFrame == nullptr || out == nullptr) return false;
    *out = *recvFrame;
    return true;
}

std::thread::id RuvoManager::getThreadId() {
    std::lock_guard<std::mutex> lock(dispatchThreadMutex);
    return dispatchThreadId;
}

void RuvoManager::onPackageRecv(const CanPackage* packages, int count) {
    if (count > 0 && packages != nullptr) {
        std::lock_guard<std::mutex> lock(recvMutex);
        recvFlag.store(true);
        if (recvFrame != nullptr) FrameConverter::instance().toKelnCan(packages[0], *recvFrame);
    }
    {
        std::lock_guard<std::mutex> lock(dispatchThreadMutex);
        dispatchThreadId = std::this_thread::get_id();
    }
    Source source(*this);
    const auto sets = handlerCache->current(source);
    ruvo::dispatchFrames(*sets, packages, count);
}

void RuvoManager::prePackageSend(std::list<CanPackage>& packages) {
    Source source(*this);
    const auto sets = handlerCache->current(source);
    ruvo::rewriteBeforeSend(*sets, packages);
}

void RuvoManager::onStartup(std::list<int>, std::list<int>) {
    Source source(*this);
    ruvo::callPlainHandlers(handlerCache->current(source)->started);
    runTimers(true);
}

void RuvoManager::onShutdown() {
    runTimers(false);
    Source source(*this);
    ruvo::callPlainHandlers(handlerCache->current(source)->stopped);
}

void RuvoManager::beforeStartup() {}
void RuvoManager::onFindDeviceSuccess(const std::map<DevType, int>&) {}
void RuvoManager::onSortPackageRecv(const CanPackage*, int) {}

namespace {

std::list<int> enabledDevices() {
    std::set<int> devices;
    for (NetWorkType network : {NETWORK_CAN, NETWORK_LIN}) {
        for (const ChannelMapping& m : device_info_interface::getDeviceMapping(network)) {
            if (m.enabled) devices.insert(m.deviceId);
        }
    }
    return std::list<int>(devices.begin(), devices.end());
}

}  // namespace

namespace ruvo_sdk {

int kelnStartup() {
    const std::list<int> devices = enabledDevices();
    if (std::this_thread::get_id() == RuvoManager::getInstance().getThreadId()) {
        device_control_interface::startup(devices);
        return 0;
    }
    device_control_interface::startup_sync(devices);
    return device_control_interface::hasStartup() ? 0 : 1;
}

int kelnStop() {
    const std::list<int> devices = enabledDevices();
    if (std::this_thread::get_id() == RuvoManager::getInstance().getThreadId()) {
        device_control_interface::shutdown_async(devices);
    } else {
        device_control_interface::shutdown(devices);
    }
    return 0;
}

}  // namespace ruvo_sdk
