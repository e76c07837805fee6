#include "build/prebuilt.h"

#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <sstream>
#include <system_error>
#include <vector>

#include "build/compile_command.h"
#include "platform/process.h"

namespace ruvo {

namespace {

namespace fs = std::filesystem;

// The generated applet's include lines, less the two that change between applets and edits
// (resource.h, database.h). RuvoBase.h is taken from the installation by its full path.
std::string prefixText(const std::string& baseHeader) {
    return "#include <stdio.h>\n#include \"" + baseHeader +
           "\"\n#include \"mp_ruvo.h\"\n#include \"applet_global_def.h\"\n#include \"RuvoTimer.h\"\n"
           "#include \"commonkitstring.h\"\n#include \"commonkit.h\"\n";
}

fs::file_time_type newestInput(const std::vector<fs::path>& roots) {
    // Not file_time_type{}: the file clock's epoch may lie after every real time stamp.
    auto newest = fs::file_time_type::min();
    std::error_code ec;
    for (const fs::path& root : roots) {
        for (fs::recursive_directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec)) {
            const fs::path& p = it->path();
            if (p.filename() == "prebuilt" || p.filename() == "database.h") {
                if (it->is_directory(ec)) it.disable_recursion_pending();
                continue;
            }
            if (!it->is_regular_file(ec)) continue;
            const auto t = it->last_write_time(ec);
            if (!ec && t > newest) newest = t;
        }
        ec.clear();
    }
    return newest;
}

bool upToDate(const fs::path& piece, fs::file_time_type inputs) {
    std::error_code ec;
    const auto t = fs::last_write_time(piece, ec);
    return !ec && t >= inputs;
}

std::string slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// Runs the tool tree's compiler; true when it made `output` (written under a temporary name and
// renamed, so a concurrent compile never sees half a file).
bool make(std::vector<std::string> argv, const fs::path& output) {
    const fs::path temp = output.string() + ".tmp" + std::to_string(std::random_device()());
    argv.insert(argv.end(), {"-o", temp.string()});
    platform::Command command;
    command.argv = std::move(argv);
    platform::ChildProcess process;
    platform::ChildProcess::Failure failure;
    if (!process.start(command, platform::ChildProcess::Output::Merged, failure)) return false;
    process.readAll([](const char*, size_t) {});
    std::error_code ec;
    if (process.wait() != 0) {
        fs::remove(temp, ec);
        return false;
    }
    fs::rename(temp, output, ec);
    if (ec) fs::remove(temp, ec);
    return !ec;
}

std::mutex& buildMutex() {
    static std::mutex m;
    return m;
}

}  // namespace

PrebuiltPieces preparePrebuilt(const std::string& currentDir) {
    const fs::path tool = fs::path(currentDir) / "Ruvo";
    const fs::path include = tool / "KELN_Ruvo_Include";
    const fs::path dir = include / "RuvoManager" / "prebuilt";
    const fs::path base = tool / "RuvoBase";
    const fs::path pch = dir / "applet_prefix.pch", object = dir / "RuvoBase.o";

    // The flags every applet is compiled with: the prefix must be made with the same.
    const std::vector<std::string> compile = posixCompilerFlags(currentDir, 1);
    const std::vector<std::string> includes = posixIncludeArguments(currentDir);

    std::lock_guard<std::mutex> lock(buildMutex());
    std::error_code ec;
    if (!fs::exists(tool / "clang_compiler", ec) || !fs::exists(base / "RuvoBase.cpp", ec)) return {};
    fs::create_directories(dir, ec);
    // Made for this include tree with these flags; a copied tree (or a changed command) makes anew.
    std::string stamp;
    for (const std::string& a : compile) stamp += a + "\n";
    for (const std::string& a : includes) stamp += a + "\n";
    stamp += "-fpch-instantiate-templates\n";
    const bool sameStamp = slurp(dir / "stamp") == stamp;
    const auto inputs = newestInput({include, base});

    PrebuiltPieces pieces;
    if (sameStamp && upToDate(pch, inputs)) {
        pieces.prefixPch = pch.string();
    } else {
        std::ofstream(dir / "applet_prefix.h", std::ios::binary | std::ios::trunc)
            << prefixText((base / "RuvoBase.h").string());
        std::vector<std::string> argv = compile;
        argv.insert(argv.end(), includes.begin(), includes.end());
        // Templates the headers use are instantiated once here rather than in every applet.
        argv.insert(argv.end(), {"-fpch-instantiate-templates", "-x", "c++-header", (dir / "applet_prefix.h").string()});
        if (make(argv, pch)) pieces.prefixPch = pch.string();
    }
    if (sameStamp && upToDate(object, inputs)) {
        pieces.baseObject = object.string();
    } else {
        std::vector<std::string> argv = compile;
        argv.insert(argv.end(), includes.begin(), includes.end());
        argv.insert(argv.end(), {"-c", (base / "RuvoBase.cpp").string()});
        if (make(argv, object)) pieces.baseObject = object.string();
    }
    if (!sameStamp && !pieces.prefixPch.empty() && !pieces.baseObject.empty())
        std::ofstream(dir / "stamp", std::ios::binary | std::ios::trunc) << stamp;
    return pieces;
}

void discardPrebuilt(const PrebuiltPieces& pieces) {
    std::lock_guard<std::mutex> lock(buildMutex());
    std::error_code ec;
    if (!pieces.prefixPch.empty()) fs::remove(pieces.prefixPch, ec);
}

bool reportsStalePrefix(const std::string& compilerOutput) {
    return compilerOutput.find("precompiled header") != std::string::npos ||
           compilerOutput.find("PCH file") != std::string::npos;
}

}  // namespace ruvo
