#include "build/compile_command.h"

#include <iterator>

namespace ruvo {

namespace {

const char* const kIncludeDirs[] = {
    "ucrt",         "ucrt\\sys",        "HostBridge",
    "RuvoManager",  "RuvoManager\\inc", "CommonKit",
    "SDK",          "SDK\\CalMaster",   "SDK\\FrameKit",
    "SDK\\VarStore", "SDK\\DeviceHub",  "SDK\\DeviceHub\\EthLinkApi",
    "SDK\\DeviceHub\\UsbLinkApi", "SDK\\DeviceHub\\SimBusApi", "SDK\\DeviceHub\\BoxApi",
    "SDK\\DeviceHub\\BoxRunnerApi",
};

std::string posixPath(std::string path) {
    for (char& c : path) {
        if (c == '\\') c = '/';
    }
    return path;
}

const char* const kLibraries[] = {"-lVarStore", "-lRuvoManager", "-lDeviceHub", "-lHostBridge",
                                  "-lCommonKit"};

std::string libraries() {
    return " -lVarStore \t-lRuvoManager\t-lDeviceHub\t-lHostBridge\t-lCommonKit";
}

// A relative path that begins with '-' would be read as an option.
std::string notAnOption(const std::string& path) {
    return !path.empty() && path[0] == '-' ? "./" + path : path;
}

}  // namespace

std::string windowsCompileCommand(const CompileCommandInput& in) {
    const std::string B = in.currentDir + "\\Ruvo";
    const std::string I = in.currentDir + "\\Ruvo\\KELN_Ruvo_Include";
    const std::string msvc = B + "\\MSVC\\14.39.33519";
    const std::string sources = in.codePath + "RuvoBase.cpp" + " " + in.codePath + "singleapp.cpp";

    std::string c = "\"" + B + "\\clang_compiler\\clang++\" -std=c++17 -m32 ";
    c += "-flto-jobs=" + std::to_string(in.jobs) + " ";
    c += "-fms-compatibility -fms-compatibility-version=19.39 -target i686-pc-windows-msvc ";
    c += " -working-directory \"" + msvc + "\\bin\\Hostx64\\x86\" ";
    c += sources + " ";
    c += " -shared -o " + in.outputPath;
    c += " -isystem \"" + msvc + "\\include\"";
    for (const char* dir : kIncludeDirs) c += " -I \"" + I + "\\" + dir + "\"";
    c += " -L \"" + B + "\\KELN_Ruvo_Lib\"";
    c += " -L \"" + msvc + "\\lib\\x86\"";
    c += libraries();

    return "cmd.exe /c chcp 65001 > nul && set VCINSTALLDIR=" + msvc + " && " +
           "set VCToolsInstallDir=" + msvc + " && " + "set VSINSTALLDIR=" + B + " &&  " + c;
}

std::vector<std::string> posixCompilerFlags(const std::string& currentDir, unsigned jobs) {
    // In place of the Windows target: a shared object that exports only the applet's own
    // symbols, so it can really be unmapped again.
    return {currentDir + "/Ruvo/clang_compiler/clang++", "-std=c++17", "-flto-jobs=" + std::to_string(jobs),
            "-fPIC", "-fvisibility=hidden", "-fvisibility-inlines-hidden", "-Wno-unused-command-line-argument"};
}

std::vector<std::string> posixIncludeArguments(const std::string& currentDir) {
    const std::string I = currentDir + "/Ruvo/KELN_Ruvo_Include";
    std::vector<std::string> a;
    for (const char* dir : kIncludeDirs) a.insert(a.end(), {"-I", I + "/" + posixPath(dir)});
    return a;
}

std::vector<std::string> posixCompileArguments(const CompileCommandInput& in, const PrebuiltPieces& prebuilt) {
    std::vector<std::string> a = posixCompilerFlags(in.currentDir, in.jobs);
    if (!prebuilt.prefixPch.empty()) a.insert(a.end(), {"-include-pch", prebuilt.prefixPch});
    a.push_back(prebuilt.baseObject.empty() ? notAnOption(in.codePath + "RuvoBase.cpp") : prebuilt.baseObject);
    a.push_back(notAnOption(in.codePath + "singleapp.cpp"));
    a.insert(a.end(), {"-shared", "-o", in.outputPath});
    const std::vector<std::string> includes = posixIncludeArguments(in.currentDir);
    a.insert(a.end(), includes.begin(), includes.end());
    a.insert(a.end(), {"-L", in.currentDir + "/Ruvo/KELN_Ruvo_Lib"});
    a.insert(a.end(), std::begin(kLibraries), std::end(kLibraries));
    return a;
}

std::string windowsFormatCommand(const std::string& currentDir, const std::string& path) {
    const std::string B = currentDir + "\\Ruvo";
    return B + "\\clang_format\\clang-format.exe -i -style=file:" + B +
           "\\clang_format\\.clang-format " + "\"" + path + "\"";
}

std::vector<std::string> posixFormatArguments(const std::string& currentDir, const std::string& path) {
    const std::string B = currentDir + "/Ruvo";
    return {B + "/clang_format/clang-format.exe", "-i",
            "-style=file:" + B + "/clang_format/.clang-format", notAnOption(path)};
}

std::string renderArguments(const std::vector<std::string>& argv) {
    std::string line;
    for (const std::string& arg : argv) {
        if (!line.empty()) line += ' ';
        const bool plain = !arg.empty() && arg.find_first_not_of(
                                               "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                               "0123456789_@%+=:,./-") == std::string::npos;
        if (plain) {
            line += arg;
            continue;
        }
        line += '\'';
        for (char c : arg) line += c == '\'' ? std::string("'\\''") : std::string(1, c);
        line += '\'';
    }
    return line;
}

}  // namespace ruvo
