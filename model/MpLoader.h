#pragma once
// Owns the handle of one compiled applet module.

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/export.h"

class RuvoTimer;

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
    // Idempotent. The module is unmapped at once unless a pin still holds it; then it goes
    // with the last pin.
    void destoryMp();
    void* getMpHandle();
    bool isLoaded() const;
    // Unlocked: callers rely on the module staying loaded while they use the address.
    void* getFuncAddress(const std::string& name) const;
    // Keeps the present module mapped while held, even across destoryMp (a batch of frames
    // in flight on another thread); empty when nothing is loaded.
    std::shared_ptr<void> pin() const;
    // The timers the present module built while it loaded, in construction order (which is
    // their order in the source). Valid while a pin is held.
    std::vector<RuvoTimer*> timers() const;
    // Why the last load or unload failed, "" after a success.
    std::string lastError() const;

private:
    struct Module;
    void release();

    std::shared_ptr<Module> module;
    mutable std::mutex mutex;
    std::string error;
};
