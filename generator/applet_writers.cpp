// Writing an applet's generated sources to disk. Lives with the generator so the model
// itself never depends on it.

#include <exception>
#include <filesystem>
#include <map>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include "generator/CppCodeGenerator.h"
#include "host/log_interface.h"
#include "model/MpRuvo.h"
#include "model/names.h"
#include "model/text_file.h"

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

bool isSourceName(const std::filesystem::path& name) {
    const std::string ext = name.extension().string();
    return ext == ".h" || ext == ".cpp" || ext == ".c";
}

// Sources of an earlier generation that the new one did not write go; other files and
// subdirectories stay. A link is removed itself, never followed. `keep` holds lower-case names,
// so a case-insensitive file system never loses a file just written under another case.
void deleteStaleSources(const std::string& dir, const std::set<std::string>& keep) {
    namespace fs = std::filesystem;
    std::error_code ec;
    fs::directory_iterator it(dir, ec);
    if (ec) return;  // `path` may be a name prefix rather than a directory
    for (const auto& entry : it) {
        const fs::file_status status = entry.symlink_status();
        if (!fs::is_regular_file(status) && !fs::is_symlink(status)) continue;
        const fs::path name = entry.path().filename();
        if (!isSourceName(name) || keep.count(lowerAscii(name.string())) != 0) continue;
        fs::remove(entry.path());
    }
}

// A directory that is itself a link could lead the writes anywhere; the real directory has to
// be named instead.
void refuseLinkedDirectory(const std::string& dir) {
    if (ruvo::isLinkedDirectory(dir)) {
        throw std::runtime_error("refusing to write into " + dir + ": it is a symbolic link");
    }
}

// A directory as the file system calls take it: Windows' C runtime cannot stat "dir/".
std::filesystem::path withoutTrailingSeparator(const std::string& dir) {
    const std::filesystem::path p(dir);
    return p.has_filename() ? p : p.parent_path();
}

// Temporaries of a set whose writing was given up.
struct StagedSet {
    std::vector<ruvo::StagedFile> files;
    ~StagedSet() {
        for (auto& f : files) ruvo::discardStaged(f);
    }
};

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
        refuseLinkedDirectory(dir);
        std::vector<std::pair<std::string, std::string>> writes;  // path, text
        if (layout != Layout::Multi) {
            // Always beside the applet's code, whatever `path` says.
            refuseLinkedDirectory(getCodePath());
            writes.emplace_back(getCodePath() + "resource.h", getResourceCode());
        }
        std::set<std::string> keep;
        if (hasFirst) {
            for (const auto& file : first.files) {
                writes.emplace_back(dir + file.name, file.content);
                keep.insert(lowerAscii(file.name));
            }
        }
        if (hasSingle) {
            for (const auto& file : single.files) {
                writes.emplace_back(dir + file.name, normaliseLineEnds(file.content));
                keep.insert(lowerAscii(file.name));
            }
        }
        std::error_code ec;
        if (layout != Layout::Multi && std::filesystem::equivalent(withoutTrailingSeparator(dir),
                                                                   withoutTrailingSeparator(getCodePath()), ec)) {
            keep.insert("resource.h");
        }

        // Every text reaches the disk before any old file is replaced: a full disk or a denied
        // write leaves the earlier generation whole.
        StagedSet staged;
        staged.files.resize(writes.size());
        std::string error;
        for (size_t i = 0; i < writes.size(); ++i) {
            if (ruvo::stageFile(writes[i].first, writes[i].second, staged.files[i], error) !=
                ruvo::WriteResult::Written) {
                throw std::runtime_error(error + "; no file was changed");
            }
        }
        for (size_t i = 0; i < staged.files.size(); ++i) {
            if (!ruvo::commitStaged(staged.files[i], error)) {
                throw std::runtime_error(error + "; " + std::to_string(i) + " of " +
                                         std::to_string(writes.size()) +
                                         " files were replaced, the others keep their earlier text");
            }
        }
        std::set<std::string> dirs;
        for (const auto& w : writes) dirs.insert(std::filesystem::path(w.first).parent_path().string());
        for (const auto& d : dirs) {
            if (!ruvo::syncDirectory(d, error)) throw std::runtime_error(error);
        }
        deleteStaleSources(dir, keep);
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
