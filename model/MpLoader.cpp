#include "model/MpLoader.h"

#include <algorithm>

#include "host/log_interface.h"
#include "model/module_timers.h"
#include "platform/module.h"

namespace {
thread_local std::vector<RuvoTimer*>* t_gathering = nullptr;
}

namespace ruvo {

void noteTimerBuilt(RuvoTimer* timer) {
    if (t_gathering != nullptr) t_gathering->push_back(timer);
}

void noteTimerGone(RuvoTimer* timer) {
    // A temporary built and dropped by the module's own start-up code.
    if (t_gathering != nullptr) {
        t_gathering->erase(std::remove(t_gathering->begin(), t_gathering->end(), timer), t_gathering->end());
    }
}

}  // namespace ruvo

struct MpLoader::Module {
    explicit Module(void* h) : handle(h) {}
    ~Module() {
        std::string error;
        if (handle != nullptr && !platform::freeModule(handle, error)) {
            log_interface::log_error("module unload failed: %s", error.c_str());
        }
    }
    void* handle;
    std::vector<RuvoTimer*> timers;
};

MpLoader::~MpLoader() { destoryMp(); }

MpLoader::MpLoader(MpLoader&& other) noexcept {
    std::lock_guard<std::mutex> lock(other.mutex);
    module = std::move(other.module);
}

MpLoader& MpLoader::operator=(MpLoader&& other) noexcept {
    if (this != &other) {
        destoryMp();
        std::scoped_lock lock(mutex, other.mutex);
        module = std::move(other.module);
    }
    return *this;
}

void MpLoader::release() {
    if (!module) return;
    if (module.use_count() == 1) {
        // The last holder: unmap here, so a failure is kept for lastError.
        platform::freeModule(module->handle, error);
        module->handle = nullptr;
    }
    module.reset();  // else the last pin unmaps it
}

bool MpLoader::loadMp(const std::string& path) {
    std::lock_guard<std::mutex> lock(mutex);
    release();
    error.clear();
    // File-level objects are built inside the load, on this thread.
    std::vector<RuvoTimer*> timers;
    t_gathering = &timers;
    void* handle = platform::loadModule(path, error);
    t_gathering = nullptr;
    if (handle != nullptr) {
        module = std::make_shared<Module>(handle);
        module->timers = std::move(timers);
    }
    return handle != nullptr;
}

void MpLoader::destoryMp() {
    std::lock_guard<std::mutex> lock(mutex);
    error.clear();
    release();
}

void* MpLoader::getMpHandle() {
    std::lock_guard<std::mutex> lock(mutex);
    return module ? module->handle : nullptr;
}

bool MpLoader::isLoaded() const {
    std::lock_guard<std::mutex> lock(mutex);
    return module != nullptr;
}

void* MpLoader::getFuncAddress(const std::string& name) const {
    void* handle = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex);
        handle = module ? module->handle : nullptr;
    }
    return handle ? platform::findSymbol(handle, name) : nullptr;
}

std::shared_ptr<void> MpLoader::pin() const {
    std::lock_guard<std::mutex> lock(mutex);
    return module;
}

std::vector<RuvoTimer*> MpLoader::timers() const {
    std::lock_guard<std::mutex> lock(mutex);
    return module ? module->timers : std::vector<RuvoTimer*>{};
}

std::string MpLoader::lastError() const {
    std::lock_guard<std::mutex> lock(mutex);
    return error;
}
