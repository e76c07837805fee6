#include "converter/package.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

#include "converter/conv_code.h"
#include "host/log_interface.h"
#include "platform/file_sync.h"

namespace conv {

namespace fs = std::filesystem;

namespace {

const std::set<std::string> kSourceExtensions = {".c", ".h", ".cpp"};
const std::set<std::string> kPackedExtensions = {".c", ".h", ".cpp", ".dll", ".so", ".csv", ".s19", ".bin", ".app", ".hex"};
const std::set<std::string> kExcluded = {"singleapp.h", "singleapp.cpp", "appletCfg.ruvo"};

std::string extensionOf(const std::string& fileName) { return fs::path(fileName).extension().string(); }

struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string readWhole(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    if (!in) throw Failure("cannot read " + p.string());
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) throw Failure("cannot read " + p.string());
    return text;
}

void writeNew(const fs::path& p, const std::string& text) {
    int fd = -1;
    int rc = platform::createExclusive(p.string(), fd);
    if (rc == 0) {
        rc = platform::writeAll(fd, text.data(), text.size());
        if (rc == 0) rc = platform::syncFile(fd);
        const int closed = platform::closeFile(fd);
        if (rc == 0) rc = closed;
    }
    if (rc != 0) throw Failure("cannot write " + p.string() + ": " + platform::errorText(rc));
}

// A directory beside `target` that nobody else uses.
fs::path makeScratch(const fs::path& target) {
    static std::atomic<unsigned> counter{0};
    const auto stamp = static_cast<unsigned long long>(std::chrono::steady_clock::now().time_since_epoch().count());
    for (int attempt = 0; attempt < 100; ++attempt) {
        const fs::path p = target.parent_path() / ("." + target.filename().string() + ".convert-" +
                                                   std::to_string(stamp) + "-" + std::to_string(counter++));
        std::error_code ec;
        if (fs::create_directory(p, ec)) return p;
        if (ec) throw Failure("cannot create a directory beside " + target.string() + ": " + ec.message());
    }
    throw Failure("cannot create a directory beside " + target.string());
}

bool inside(const fs::path& inner, const fs::path& outer) {
    auto i = inner.begin();
    for (auto o = outer.begin(); o != outer.end(); ++o, ++i) {
        if (o->empty()) continue;  // a trailing separator
        if (i == inner.end() || *i != *o) return false;
    }
    return true;
}

// Removes the regular files of the packed kinds; links are left alone, never followed.
void removePacked(const fs::path& dir) {
    std::error_code ec;
    if (fs::symlink_status(dir, ec).type() != fs::file_type::directory) return;
    for (const fs::directory_entry& e : fs::directory_iterator(dir, ec)) {
        std::error_code sec;
        if (e.symlink_status(sec).type() != fs::file_type::regular) continue;
        if (!isPackedFile(e.path().filename().string())) continue;
        if (!fs::remove(e.path(), sec) || sec) log_interface::log_error("删除文件失败:%s", e.path().string().c_str());
    }
}

std::string launcher(const std::string& appletName, const std::vector<std::string>& definitions) {
    std::string text;
    for (const std::string& d : definitions) text += d;
    text += "sys_RunScript(\"/script/" + appletName + "/main.cpp\",NULL,0,NULL);\n";
    text += "int main(int argc,char **argv){return 0;}\n";
    return text;
}

}  // namespace

bool isSourceFile(const std::string& fileName) {
    return kSourceExtensions.count(extensionOf(fileName)) != 0 && kExcluded.count(fileName) == 0;
}

bool isPackedFile(const std::string& fileName) { return kPackedExtensions.count(extensionOf(fileName)) != 0; }

int writeVciPackage(const PackageRequest& request, const std::string& targetDir, PackageResult& result) {
    result = PackageResult();
    fs::path scratch;
    try {
        const std::string& name = request.appletName;
        if (name.empty() || name == "." || name == ".." || name.find_first_of("/\\") != std::string::npos) {
            throw Failure("bad applet name \"" + name + "\"");
        }
        if (targetDir.empty()) throw Failure("no target directory");

        // Read and convert everything before the target is touched.
        AppPacket in;
        in.text1 = name;
        in.text2 = request.mainPort;
        in.lines = request.lines;
        std::error_code ec;
        const fs::path code = request.codePath;
        if (fs::is_directory(code, ec)) {
            std::vector<fs::path> files;
            for (const fs::directory_entry& e : fs::directory_iterator(code)) {
                std::error_code sec;
                if (e.symlink_status(sec).type() != fs::file_type::regular) continue;
                if (isSourceFile(e.path().filename().string())) files.push_back(e.path());
            }
            std::sort(files.begin(), files.end());
            for (const fs::path& p : files) {
                const std::string fileName = p.filename().string();
                in.files.push_back(AppFile{fileName, extensionOf(fileName) == ".h" ? APP_FILE_HEADER : APP_FILE_SOURCE,
                                           readWhole(p)});
            }
        }
        Conv_C_Vci converter;
        converter.setTemplateDir(request.templateDir);
        AppPacket out;
        if (converter.ConvCode(in, out) != 0) throw Failure("conversion failed: " + converter.lastError());
        const std::vector<std::string> definitions = converter.getVarDefines();

        if (!code.empty() && fs::exists(code, ec) &&
            inside(fs::weakly_canonical(targetDir), fs::canonical(code))) {
            throw Failure("the target " + targetDir + " lies inside the applet's code directory");
        }
        try {
            fs::create_directories(targetDir);
        } catch (const fs::filesystem_error& e) {
            log_interface::log_error("拒绝访问：%s", e.what());
            throw Failure(std::string("拒绝访问：") + e.what());
        }
        const fs::path target = fs::canonical(targetDir);
        if (!code.empty() && fs::exists(code, ec) && inside(target, fs::canonical(code))) {  // through a link
            throw Failure("the target " + target.string() + " lies inside the applet's code directory");
        }
        const fs::path appletDir = target / name;
        const fs::file_type appletType = fs::symlink_status(appletDir, ec).type();
        if (appletType != fs::file_type::not_found && appletType != fs::file_type::directory) {
            throw Failure(appletDir.string() + " is not a directory");
        }

        scratch = makeScratch(target);
        fs::create_directory(scratch / name);
        for (const AppFile& f : out.files) writeNew(scratch / name / f.name, f.content);
        writeNew(scratch / "main.cpp", launcher(name, definitions));

        // Into place: the old package goes first, then each file is renamed over.
        removePacked(target);
        removePacked(appletDir);
        fs::create_directory(appletDir);
        for (const AppFile& f : out.files) {
            const int rc = platform::replaceFile((scratch / name / f.name).string(), (appletDir / f.name).string());
            if (rc != 0) throw Failure("cannot move " + f.name + " into " + appletDir.string() + ": " + platform::errorText(rc));
            result.written.push_back(name + "/" + f.name);
        }
        const int rc = platform::replaceFile((scratch / "main.cpp").string(), (target / "main.cpp").string());
        if (rc != 0) throw Failure("cannot move main.cpp into " + target.string() + ": " + platform::errorText(rc));
        result.written.push_back("main.cpp");
        platform::syncDirectory(appletDir.string());
        platform::syncDirectory(target.string());
        fs::remove_all(scratch, ec);
        return 0;
    } catch (const std::exception& e) {
        result.error = e.what();
        if (result.error.empty()) result.error = "conversion failed";
        if (!scratch.empty()) {
            std::error_code ec;
            fs::remove_all(scratch, ec);
        }
        return -1;
    }
}

}  // namespace conv
