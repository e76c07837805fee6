#pragma once
// Owns the handle of one compiled applet module.

#include <mutex>
#include <string>

#include "platform/export.h"

class RUVO_API MpLoader {
public:
    MpLoader() = default;
    ~MpLoader();
    MpLoader(const MpLoader&) = delete;
    MpLoader& operator=(const MpLoader&) = delete;
    MpLoader(MpLoader&& other) noexcept;
    MpLoader& operator=(MpLoader&& other) noexcept;

    // Unloads a present module first. False, with the system's reason kept, on failure.
    bool loadMp(const std::string& path);
    // Idempotent.
    void destoryMp();
    void* getMpHandle();
    bool isLoaded() const { return handle != nullptr; }
    // Unlocked: callers rely on the module staying loaded while they use the address.
    void* getFuncAddress(const std::string& name) const;
    // Why the last load or unload failed, "" after a success.
    std::string lastError() const;

private:
    void* handle = nullptr;
    mutable std::mutex mutex;
    std::string error;
};
