#pragma once
// The host's listener interface and the frame record it delivers.

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <vector>

#include "host/hostbridge_export.h"

// Message kinds of the host's message headers; the first byte of every message.
enum MsgType : uint8_t {
    MSG_TYPE_NONE = 0,
    MSG_TYPE_LIN = 1,
    MSG_TYPE_CAN = 2,
    MSG_TYPE_ETH = 3,
};

enum DevType : int32_t { DEV_TYPE_VIRTUAL = 0, DEV_TYPE_CAN_BOX = 1 };

class MsgHeaderBase;

// One frame as the host hands it around: a message and one word, no padding between
// (16 bytes with 32-bit pointers); arrays have that stride.
struct CanPackage {
    std::shared_ptr<MsgHeaderBase> message;
    uint64_t word = 0;
};
static_assert(sizeof(CanPackage) == sizeof(std::shared_ptr<MsgHeaderBase>) + sizeof(uint64_t),
              "CanPackage stride");

class ISDKReceiver {
public:
    virtual ~ISDKReceiver() = default;
    virtual void beforeStartup() = 0;
    virtual void onStartup(std::list<int> channels, std::list<int> devices) = 0;
    virtual void onShutdown() = 0;
    virtual void onFindDeviceSuccess(const std::map<DevType, int>& devices) = 0;
    virtual void onPackageRecv(const CanPackage* packages, int count) = 0;
    virtual void onSortPackageRecv(const CanPackage* packages, int count) = 0;
    virtual void prePackageSend(std::list<CanPackage>& packages) = 0;
};

HOSTBRIDGE_API void registReceiver(ISDKReceiver* receiver);
HOSTBRIDGE_API void unRegistReceiver(ISDKReceiver* receiver);

namespace hostbridge {
// Receivers in registration order, for the bus and for observers.
HOSTBRIDGE_API std::vector<ISDKReceiver*> registeredReceivers();
}  // namespace hostbridge

namespace calmasterInterface {
// Brings the host's calibration link up; the manager calls it once at start.
HOSTBRIDGE_API int calmasterSdk_init();
HOSTBRIDGE_API bool isInitialised();
}  // namespace calmasterInterface
