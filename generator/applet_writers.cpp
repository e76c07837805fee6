// Writing an applet's generated sources to disk. Lives with the generator so the model
// itself never depends on it.

#include <exception>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "generator/CppCodeGenerator.h"
#include "host/log_interface.h"
#include "model/MpRuvo.h"
#include "model/names.h"

namespace {

std::string normaliseLineEnds(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
        out += text[i];
    }
    return out;
}

// Stale sources of an earlier generation go; other files and subdirectories stay.
void deleteStaleSources(const std::string& dir) {
    namespace fs = std::filesystem;
    if (!fs::exists(dir)) return;
    for (const auto& entry : fs::directory_iterator(dir)) {
        if (!entry.is_regular_file()) continue;
        const std::string ext = entry.path().extension().string();
        if (ext == ".h" || ext == ".cpp" || ext == ".c") fs::remove(entry.path());
    }
}

std::string lowerAscii(std::string s) {
    for (char& c : s) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return s;
}

// Every file lands in the target directory under a plain name, and no two names are equal or
// differ only by case (they would overwrite each other, the latter on the workstation's file
// system). `seen` holds the names already taken. Checked before anything is deleted or written.
void checkFileNames(const AppPacket& packet, std::map<std::string, std::string>& seen) {
    for (const auto& file : packet.files) {
        const std::string stem = file.name.substr(0, file.name.rfind('.'));
        const std::string problem = ruvo::nameProblem(ruvo::NameKind::Applet, file.name);
        if (!problem.empty() || stem.empty()) {
            throw std::runtime_error("refusing to write the file \"" + file.name + "\": " +
                                     (problem.empty() ? std::string("has no name") : problem));
        }
        const auto inserted = seen.emplace(lowerAscii(file.name), file.name);
        if (!inserted.second) {
            throw std::runtime_error("the file \"" + file.name + "\" would overwrite \"" +
                                     inserted.first->second + "\" (names equal or differing only by case)");
        }
    }
}

}  // namespace

bool MpRuvo::writeGeneratedFiles(Layout layout, const std::string& path) {
    if (hasCycleFuncDepends()) return false;
    try {
        CppCodeGenerator generator;
        const auto vars = getGlobalVarList();
        const auto funcs = getMpFuncs();
        AppPacket first;   // multi-file or combined
        AppPacket single;
        bool hasFirst = false, hasSingle = false;
        switch (layout) {
            case Layout::Single:
                single = generator.generateSingleFile(vars, funcs, getEditType());
                hasSingle = true;
                break;
            case Layout::Multi:
                first = generator.generateMultiFiles(vars, funcs);
                hasFirst = true;
                break;
            case Layout::SingleAndMulti:
                first = generator.generateMultiFiles(vars, funcs);
                single = generator.generateSingleFile(vars, funcs, getEditType());
                hasFirst = hasSingle = true;
                break;
            case Layout::Combined:
                first = generator.generateSequenceCombineFiles(vars, funcs);
                single = generator.generateSingleFile(vars, funcs, getEditType());
                hasFirst = hasSingle = true;
                break;
        }
        {
            // The base pair is copied in at compile time, resource.h is written below.
            std::map<std::string, std::string> seen{{"ruvobase.h", "RuvoBase.h"},
                                                    {"ruvobase.cpp", "RuvoBase.cpp"}};
            if (layout != Layout::Multi) seen.emplace("resource.h", "resource.h");
            if (hasSingle) checkFileNames(single, seen);
            if (hasFirst) checkFileNames(first, seen);
        }
        const std::string dir = path.empty() ? getCodePath() : path;
        deleteStaleSources(dir);
        if (layout != Layout::Multi) {
            // Always beside the applet's code, whatever `path` says.
            generator.generateResourceFile(getCodePath() + "resource.h", getResourceCode());
        }
        if (hasFirst) {
            for (const auto& file : first.files) {
                generator.generateResourceFile(dir + file.name, file.content);
            }
        }
        if (hasSingle) {
            for (const auto& file : single.files) {
                generator.generateResourceFile(dir + file.name, normaliseLineEnds(file.content));
            }
        }
        return true;
    } catch (const std::exception& e) {
        log_interface::log_error("generating the sources of %s: %s", getMpName().c_str(), e.what());
        return false;
    }
}

bool MpRuvo::generateSingleCodeFile(const std::string& path) {
    return writeGeneratedFiles(Layout::Single, path);
}
bool MpRuvo::generateCodeFiles(const std::string& path) {
    return writeGeneratedFiles(Layout::Multi, path);
}
bool MpRuvo::generateSingleAndMultiCodeFiles(const std::string& path) {
    return writeGeneratedFiles(Layout::SingleAndMulti, path);
}
bool MpRuvo::generateCombineCodeFile(const std::string& path) {
    return writeGeneratedFiles(Layout::Combined, path);
}
