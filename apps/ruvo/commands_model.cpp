// Commands that create, list and show applets.

#include <cstdio>
#include <filesystem>
#include <set>

#include "RuvoManager/ruvo_sdk.h"
#include "apps/ruvo/cli.h"
#include "RuvoManager/sample_applet.h"
#include "model/type_names.h"

namespace cli {

// commands_samples.cpp
std::vector<ruvo::SampleSection> sampleSections(const std::string& sampleName);
void applySample(const std::string& applet, const std::vector<ruvo::SampleSection>& sections);

std::string configPath(const std::string& project, const std::string& applet) {
    return project + "/" + applet + "_code/appletCfg.ruvo";
}

std::string openApplet(const std::string& project, const std::string& applet) {
    requireName(ruvo::NameKind::Applet, applet);
    const std::string path = configPath(project, applet);
    if (!std::filesystem::exists(path)) {
        throw std::runtime_error("no applet \"" + applet + "\" in " + project + " (" + path +
                                 " does not exist)");
    }
    ruvo_sdk::initRuvo(project.c_str());
    char name[128] = {0};
    if (ruvo_sdk::loadRuvo(path.c_str(), name) != 0 || name[0] == '\0') {
        throw std::runtime_error(path + " is not a valid applet file");
    }
    return name;
}

namespace {

const char* subTypeName(int subType) {
    switch (subType) {
        case RFT_MAIN_RUN: return "main run";
        case RFT_ALL_CODE: return "all code";
        case RFT_GLOBAL_DEFINE: return "global definitions";
        case RFT_TIMER: return "timer";
        case RFT_VAR_CHANGED: return "variable change";
        case RFT_SELF_DEFINE: return "self-defined";
        case RFT_PROGRAM_START: return "measurement start";
        case RFT_PROGRAM_STOP: return "measurement stop";
        case RFT_KEYBOARD: return "keyboard";
        case RFT_CAN_RECV: return "CAN received";
        case RFT_CAN_PRE_SEND: return "CAN before send";
        case RFT_CAN_SEND: return "CAN sent";
        case RFT_PREV_EVENT: return "before event";
        case RFT_POST_EVENT: return "after event";
        default: return "?";
    }
}

std::string joined(const std::vector<std::string>& items, const char* sep) {
    std::string out;
    for (const auto& s : items) {
        if (!out.empty()) out += sep;
        out += s;
    }
    return out;
}

template <typename C>
std::vector<std::string> asVector(const C& c) {
    return std::vector<std::string>(c.begin(), c.end());
}

void printIdMap(const char* title, const std::map<std::string, u64>& map) {
    for (const auto& e : map) {
        std::printf("  %-14s %-20s id 0x%llX\n", title, e.first.c_str(),
                    static_cast<unsigned long long>(e.second));
    }
}

}  // namespace

void showApplet(const std::string& name) {
    MpRuvo* a = RuvoManager::getInstance().getApplet(name);
    if (a == nullptr) throw std::runtime_error("no applet \"" + name + "\"");
    std::printf("applet     %s\n", a->getMpName().c_str());
    std::printf("type       %d\n", a->getType());
    std::printf("edit mode  %d (%s)\n", a->getEditType(),
                a->getEditType() == RET_ALL_CODE ? "all-code text" : "per function");
    std::printf("code dir   %s\n", a->getCodePath().c_str());
    std::printf("module     %s\n", a->getMpDllFullPath().c_str());
    const std::string mainPort = a->getMainPort();
    std::printf("main       %s\n", mainPort.empty() ? "(none)" : mainPort.c_str());

    const auto vars = a->getGlobalVarList();
    std::printf("\nvariables (%zu)\n", vars.size());
    for (const auto& v : vars) {
        std::printf("  %s%s%s%s\n", v.isConst ? "const " : "", v.getDefine().c_str(),
                    v.desc[0] ? "// " : "", v.desc);
    }

    const auto funcs = a->getMpFuncs();
    std::printf("\nfunctions (%zu)\n", funcs.size());
    for (const auto& f : funcs) {
        std::printf("  [%d %s] %s\n", f.getSubType(), subTypeName(f.getSubType()),
                    f.getFunDefCode(false).c_str());
        if (f.getAdditionCount() > 0) {
            std::printf("      additions: %s\n", joined(f.getAdditions(), ", ").c_str());
        }
        const auto deps = asVector(f.getDependFuncs());
        if (!deps.empty()) std::printf("      depends on: %s\n", joined(deps, ", ").c_str());
        const auto heads = asVector(f.getDependHead());
        if (!heads.empty()) std::printf("      headers: %s\n", joined(heads, ", ").c_str());
        std::string body = f.getBodyCode();
        while (!body.empty() && body.back() == '\n') body.pop_back();
        size_t start = 0;
        while (start <= body.size() && !body.empty()) {
            const size_t end = body.find('\n', start);
            std::printf("      | %s\n", body.substr(start, end - start).c_str());
            if (end == std::string::npos) break;
            start = end + 1;
        }
    }

    std::printf("\nbindings\n");
    bool any = false;
    for (const auto& e : a->getKeyboardEvents()) {
        std::printf("  %-14s %-20s keys %s\n", "shortcut", e.first.c_str(),
                    joined(asVector(e.second), "+").c_str());
        any = true;
    }
    printIdMap("CAN receive", a->getRecvCANId());
    printIdMap("CAN pre-send", a->getPreSendCANId());
    printIdMap("CAN sent", a->getSendCANId());
    for (const auto& e : a->getTimers()) {
        std::printf("  %-14s %-20s every %llu ms\n", "timer", e.first.c_str(),
                    static_cast<unsigned long long>(e.second));
    }
    any = any || !a->getRecvCANId().empty() || !a->getPreSendCANId().empty() ||
          !a->getSendCANId().empty() || !a->getTimers().empty();
    if (!any) std::printf("  (none)\n");
}

namespace {

void requireCount(const Args& args, size_t n) {
    if (args.size() != n) throw UsageError("expected " + std::to_string(n) + " arguments");
}

int cmdNew(const Args& args) {
    if (args.size() > 2) {
        if (args[2] != "--from-sample") throw UsageError("unknown option " + args[2]);
        if (args.size() != 4) throw UsageError("--from-sample takes one sample name");
    } else {
        requireCount(args, 2);
    }
    const std::string& project = args[0];
    const std::string& name = args[1];
    requireName(ruvo::NameKind::Applet, name);
    if (std::filesystem::exists(configPath(project, name))) {
        throw std::runtime_error("applet \"" + name + "\" already exists in " + project);
    }
    // The sample is read and checked before anything is created.
    std::vector<ruvo::SampleSection> sections;
    if (args.size() == 4) sections = sampleSections(args[3]);
    ruvo_sdk::initRuvo(project.c_str());
    if (ruvo_sdk::createRuvo(name.c_str(), AT_TOOL) != 0) {
        throw std::runtime_error("cannot create applet \"" + name + "\"");
    }
    if (args.size() == 4) applySample(name, sections);
    if (ruvo_sdk::serilize(name.c_str(), "") != 0 ||
        !std::filesystem::exists(configPath(project, name))) {
        throw std::runtime_error("cannot write " + configPath(project, name));
    }
    std::printf("created %s\n", configPath(project, name).c_str());
    return 0;
}

int cmdList(const Args& args) {
    requireCount(args, 1);
    const std::string& project = args[0];
    std::error_code ec;
    std::filesystem::directory_iterator it(project, ec);
    if (ec) throw std::runtime_error("cannot read project " + project + ": " + ec.message());
    std::set<std::string> names;
    for (const auto& entry : it) {
        const std::string dir = entry.path().filename().string();
        const std::string suffix = "_code";
        if (!entry.is_directory() || dir.size() <= suffix.size() ||
            dir.compare(dir.size() - suffix.size(), suffix.size(), suffix) != 0) {
            continue;
        }
        if (std::filesystem::exists(entry.path() / "appletCfg.ruvo")) {
            names.insert(dir.substr(0, dir.size() - suffix.size()));
        }
    }
    for (const auto& n : names) std::printf("%s\n", n.c_str());
    return 0;
}

int cmdShow(const Args& args) {
    requireCount(args, 2);
    showApplet(openApplet(args[0], args[1]));
    return 0;
}

// Removes the applet's two directories. The name was checked, so both lie directly in the
// project; a directory that is a link is refused, so nothing outside the project goes.
int cmdRm(const Args& args) {
    namespace fs = std::filesystem;
    requireCount(args, 2);
    const std::string& project = args[0];
    const std::string& name = args[1];
    requireName(ruvo::NameKind::Applet, name);
    const fs::path dirs[] = {fs::path(project) / (name + "_code"), fs::path(project) / (name + "_mp")};
    std::error_code ec;
    if (!fs::is_symlink(fs::symlink_status(dirs[0], ec)) && !fs::exists(dirs[0] / "appletCfg.ruvo", ec)) {
        throw std::runtime_error("no applet \"" + name + "\" in " + project + " (" +
                                 configPath(project, name) + " does not exist)");
    }
    for (const auto& dir : dirs) {
        const fs::file_status st = fs::symlink_status(dir, ec);
        if (fs::is_symlink(st)) {
            throw std::runtime_error("refusing to remove " + dir.string() + ": it is a symbolic link");
        }
        if (fs::exists(st) && !fs::is_directory(st)) {
            throw std::runtime_error("refusing to remove " + dir.string() + ": not a directory");
        }
    }
    for (const auto& dir : dirs) {
        if (!fs::exists(fs::symlink_status(dir, ec))) continue;
        fs::remove_all(dir, ec);
        if (ec) throw std::runtime_error("cannot remove " + dir.string() + ": " + ec.message());
        std::printf("removed %s\n", dir.string().c_str());
    }
    return 0;
}

Registrar rNew({"new", "PROJECT APPLET [--from-sample NAME]", "create an applet and write its config file", cmdNew,
                "Creates the applet in memory and writes PROJECT/APPLET_code/appletCfg.ruvo.\n"
                "--from-sample NAME starts it from a sample of \"ruvo samples\": its sections become\n"
                "the applet's functions and bindings (see the README).\n"
                "Refuses an applet that exists already and a name that cannot be a directory\n"
                "name on every host (\"/\", \"\\\", \"..\", control characters, <>:\"|?*)."});
Registrar rList({"list", "PROJECT", "list the applets of a project", cmdList,
                 "Prints, one a line and sorted, the names of the directories NAME_code of\n"
                 "PROJECT that hold an appletCfg.ruvo."});
Registrar rShow({"show", "PROJECT APPLET", "print an applet's model", cmdShow,
                 "Prints the applet's type, edit mode, directories, global variables, functions\n"
                 "(sub type, signature, additions, dependencies, body) and bindings."});
Registrar rRm({"rm", "PROJECT APPLET", "remove an applet: its code and module directories", cmdRm,
               "Deletes PROJECT/APPLET_code/ and PROJECT/APPLET_mp/ with everything in them,\n"
               "without asking. Refuses (exit 1) an applet without appletCfg.ruvo, a bad name,\n"
               "and directories that are symbolic links or not directories; then nothing is\n"
               "removed."});

}  // namespace
}  // namespace cli
