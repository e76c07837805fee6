// Compiling, formatting and module calls.

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

#include "RuvoManager/ruvo_sdk.h"
#include "RuvoManager/sdk_call.h"
#include "host/box_runner.h"
#include "services/services.h"

namespace ruvo_sdk {

using detail::applet;
using detail::str;

int compileRuvo(const char* name, RuvoCompileCallback callback) {
    const std::string appletName = str(name);
    auto a = applet(name);
    if (a == nullptr || !callback) return -1;
    const auto start = std::chrono::steady_clock::now();
    a->serialize("");
    if (!a->generateSingleAndMultiCodeFiles("")) return -1;
    const long long ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                             std::chrono::steady_clock::now() - start)
                             .count();
    std::printf("***********************************generate code time = %lld ms\n", ms);
    AppletCompiler::startCompileThread(appletName, std::move(callback), false);
    return 0;
}

int compileRuvoNoSave(const char* name, RuvoCompileCallback callback) {
    if (applet(name) == nullptr || !callback) return -1;
    AppletCompiler::startCompileThread(str(name), std::move(callback), true);
    return 0;
}

void stopCompileRuvo(const char* name) {
    if (applet(name) != nullptr) AppletCompiler::instance().stop(str(name));
}

int formatFile(const char* path) {
    AppletCompiler::instance().format(str(path));
    return 0;
}

int loadRuvoMp(const char* name) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    if (a->isLoaded()) return 0;
    return a->loadMp() ? 0 : -1;
}

int unloadRuvoMp(const char* name) {
    // Cyclic sends are entered under "RUVO_FUTURE", so this matches none of them: they outlive
    // the unload until the next stop, kept as the host expects.
    RuvoManager::getInstance().interruptRuvoFuture(str(name));
    if (auto a = applet(name)) a->destoryMp();
    return 0;
}

int interruptRuvoFuture() {
    RuvoManager::getInstance().interruptRuvoFuture("RUVO_FUTURE");
    return 0;
}

void* getRuvoFuncAddr(const char* name, const char* func) {
    auto a = applet(name);
    if (a == nullptr) return nullptr;
    loadRuvoMp(name);
    return a->getDllFuncAddress(str(func));
}

int runRuvoFunc(const char* name, const char* func) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    const std::string wanted = str(func);
    for (const auto& named : a->functions()) {
        const RuvoFunction& f = named.second;
        if (f.getName() != wanted) continue;
        void* address = a->getDllFuncAddress(wanted);
        if (address == nullptr) continue;
        // Called with no argument: a function that needs one (a frame, a key) would crash.
        bool needsArguments = false;
        for (const auto& p : f.getParamList()) needsArguments |= p.getType() != KVT_VOID;
        if (needsArguments) break;
        const KelnVarType returns = f.getReturnType().getType();
        if (returns != KVT_VOID && returns != KVT_S32) break;
        // The module stays mapped for the run; the model is free for the bus meanwhile.
        const std::shared_ptr<void> pin = a->modulePin();
        a.unlock();
        if (returns == KVT_VOID) {
            reinterpret_cast<void (*)()>(address)();
        } else {
            reinterpret_cast<s32 (*)()>(address)();
        }
        return 0;
    }
    std::printf("%s not supported\n", wanted.c_str());
    return 0;
}

int loadToolRuvoCode(const char* name, const char* func, const char* code, unsigned size,
                     RuvoCompileCallback callback) {
    if (!detail::nameAllowed("loadToolRuvoCode", ruvo::NameKind::Function, str(func))) return -1;
    const auto model = detail::lockModel();
    MpRuvo* a = applet(name).get();
    if (a == nullptr) {
        if (!detail::nameAllowed("loadToolRuvoCode", ruvo::NameKind::Applet, str(name))) return -1;
        a = RuvoManager::getInstance().createApplet(str(name), AT_TOOL);
    } else if (a->getType() == AT_TOOL) {
        unloadRuvoMp(name);  // so the module in use can be overwritten
    }
    if (a == nullptr) return -1;
    RuvoFunction f{_KelnFunction()};
    f.setName(str(func));
    f.setMainFuncFlag(true);
    f.setBodyCode(code ? std::string(code, size) : std::string());
    f.setReturnType(Parameter());  // return type value 0
    a->addMpFunction(f);
    return compileRuvo(name, callback);
}

namespace {

// The library a project's applet may load: inside the project, symbolic links resolved, so a
// name can neither climb out nor make the loader search its own paths. Empty when refused.
std::string projectLibrary(const std::string& file) {
    namespace fs = std::filesystem;
    const std::string project = RuvoManager::getInstance().getProjectPath();
    if (project.empty() || file.empty()) return {};
    std::error_code ec;
    const fs::path root = fs::weakly_canonical(fs::absolute(project, ec), ec);
    if (ec) return {};
    fs::path path(file);
    if (path.is_relative()) path = root / path;
    const fs::path resolved = fs::weakly_canonical(path, ec);
    if (ec) return {};
    const auto rel = resolved.lexically_relative(root);
    if (rel.empty() || rel == "." || *rel.begin() == "..") return {};
    return resolved.string();
}

}  // namespace

int runVciSoLibrary(const char* file, const char* function, const unsigned char* seed,
                    unsigned short seedLength, unsigned char* key, unsigned short* keyLength,
                    void* extra) {
    if (file == nullptr || function == nullptr) return 1;
    const std::string path = projectLibrary(file);
    if (path.empty()) {
        log_interface::log_error("runVciSoLibrary: refused %s: not a file of the project %s", file,
                                 RuvoManager::getInstance().getProjectPath().c_str());
        return 1;
    }
    const int r = soRun1(path.c_str(), function, seed, seedLength, key, keyLength, extra);
    return (r & 0xFF) != 0 ? 0 : 1;
}

int runVCIScriptDir(unsigned long device, unsigned char mode, char* directory, unsigned size,
                    void* extra) {
    return VCI_RunScriptDir(device, mode, directory, size, extra);
}

}  // namespace ruvo_sdk
