#pragma once
// A receiver that ignores every call; a test overrides the ones it watches.

#include "host/HostBridge.h"

struct QuietReceiver : ISDKReceiver {
    void beforeStartup() override {}
    void onStartup(std::list<int>, std::list<int>) override {}
    void onShutdown() override {}
    void onFindDeviceSuccess(const std::map<DevType, int>&) override {}
    void onPackageRecv(const CanPackage*, int) override {}
    void onSortPackageRecv(const CanPackage*, int) override {}
    void prePackageSend(std::list<CanPackage>&) override {}
};
