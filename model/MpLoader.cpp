#include "model/MpLoader.h"

#include "platform/module.h"

MpLoader::~MpLoader() { destoryMp(); }

MpLoader::MpLoader(MpLoader&& other) noexcept {
    std::lock_guard<std::mutex> lock(other.mutex);
    handle = other.handle;
    other.handle = nullptr;
}

MpLoader& MpLoader::operator=(MpLoader&& other) noexcept {
    if (this != &other) {
        destoryMp();
        std::scoped_lock lock(mutex, other.mutex);
        handle = other.handle;
        other.handle = nullptr;
    }
    return *this;
}

bool MpLoader::loadMp(const std::string& path) {
    std::lock_guard<std::mutex> lock(mutex);
    if (handle != nullptr) {
        platform::freeModule(handle, error);
        handle = nullptr;
    }
    error.clear();
    handle = platform::loadModule(path, error);
    return handle != nullptr;
}

void MpLoader::destoryMp() {
    std::lock_guard<std::mutex> lock(mutex);
    if (handle == nullptr) return;
    error.clear();
    platform::freeModule(handle, error);
    handle = nullptr;
}

void* MpLoader::getMpHandle() {
    std::lock_guard<std::mutex> lock(mutex);
    return handle;
}

void* MpLoader::getFuncAddress(const std::string& name) const {
    return handle ? platform::findSymbol(handle, name) : nullptr;
}

std::string MpLoader::lastError() const {
    std::lock_guard<std::mutex> lock(mutex);
    return error;
}
