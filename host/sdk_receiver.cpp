#include "host/sdk_receiver.h"

#include "host/workstation.h"

#include <algorithm>
#include <atomic>
#include <mutex>

namespace {

std::mutex& receiverMutex() {
    static std::mutex m;
    return m;
}
std::vector<ISDKReceiver*>& receivers() {
    static std::vector<ISDKReceiver*> r;
    return r;
}
std::atomic<bool> g_calmasterUp{false};

}  // namespace

void registReceiver(ISDKReceiver* receiver) {
    if (receiver == nullptr) return;
    std::lock_guard<std::mutex> lock(receiverMutex());
    auto& r = receivers();
    if (std::find(r.begin(), r.end(), receiver) == r.end()) r.push_back(receiver);
}

void unRegistReceiver(ISDKReceiver* receiver) {
    {
        std::lock_guard<std::mutex> lock(receiverMutex());
        auto& r = receivers();
        r.erase(std::remove(r.begin(), r.end(), receiver), r.end());
    }
    // A batch the host's delivery thread is handing out may still hold it: the caller may
    // destroy the receiver once this returns.
    hostbridge::waitForDeliveryInProgress();
}

namespace hostbridge {
std::vector<ISDKReceiver*> registeredReceivers() {
    std::lock_guard<std::mutex> lock(receiverMutex());
    return receivers();
}
}  // namespace hostbridge

namespace calmasterInterface {
int calmasterSdk_init() {
    g_calmasterUp.store(true);
    return 0;
}
bool isInitialised() { return g_calmasterUp.load(); }
}  // namespace calmasterInterface
