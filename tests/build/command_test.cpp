#include <gtest/gtest.h>

#include "build/AppletCompiler.h"
#include "build/compile_command.h"

TEST(CompileCommand, WindowsLineIsExactToTheByte) {
    const ruvo::CompileCommandInput in{"C:\\Host", 8, "D:\\proj\\app_code\\", "D:\\proj\\app_mp\\app.mp"};
    const std::string expected =
        "cmd.exe /c chcp 65001 > nul && set VCINSTALLDIR=C:\\Host\\Ruvo\\MSVC\\14.39.33519 && "
        "set VCToolsInstallDir=C:\\Host\\Ruvo\\MSVC\\14.39.33519 && set VSINSTALLDIR=C:\\Host\\Ruvo &&  "
        "\"C:\\Host\\Ruvo\\clang_compiler\\clang++\" -std=c++17 -m32 -flto-jobs=8 "
        "-fms-compatibility -fms-compatibility-version=19.39 -target i686-pc-windows-msvc  "
        "-working-directory \"C:\\Host\\Ruvo\\MSVC\\14.39.33519\\bin\\Hostx64\\x86\" "
        "D:\\proj\\app_code\\RuvoBase.cpp D:\\proj\\app_code\\singleapp.cpp  -shared -o "
        "D:\\proj\\app_mp\\app.mp -isystem \"C:\\Host\\Ruvo\\MSVC\\14.39.33519\\include\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\ucrt\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\ucrt\\sys\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\HostBridge\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\RuvoManager\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\RuvoManager\\inc\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\CommonKit\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\SDK\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\SDK\\CalMaster\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\SDK\\FrameKit\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\SDK\\VarStore\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\SDK\\DeviceHub\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\SDK\\DeviceHub\\EthLinkApi\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\SDK\\DeviceHub\\UsbLinkApi\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\SDK\\DeviceHub\\SimBusApi\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\SDK\\DeviceHub\\BoxApi\""
        " -I \"C:\\Host\\Ruvo\\KELN_Ruvo_Include\\SDK\\DeviceHub\\BoxRunnerApi\""
        " -L \"C:\\Host\\Ruvo\\KELN_Ruvo_Lib\""
        " -L \"C:\\Host\\Ruvo\\MSVC\\14.39.33519\\lib\\x86\""
        " -lVarStore \t-lRuvoManager\t-lDeviceHub\t-lHostBridge\t-lCommonKit";
    EXPECT_EQ(ruvo::windowsCompileCommand(in), expected);
}

TEST(CompileCommand, PosixProfileKeepsThePiecesInOrderWithoutWindowsFlags) {
    const ruvo::CompileCommandInput in{"/host", 2, "/p/app_code/", "/p/app_mp/app.mp"};
    const std::string line = ruvo::posixCompileCommand(in);
    EXPECT_EQ(line.rfind("\"/host/Ruvo/clang_compiler/clang++\" -std=c++17 -flto-jobs=2 -fPIC ", 0), 0u)
        << line;
    for (const char* windowsOnly : {"-m32", "-fms-compatibility", "i686", "MSVC", "\\", "cmd.exe"}) {
        EXPECT_EQ(line.find(windowsOnly), std::string::npos) << windowsOnly;
    }
    const size_t sources = line.find("/p/app_code/RuvoBase.cpp /p/app_code/singleapp.cpp  -shared -o /p/app_mp/app.mp");
    const size_t includes = line.find(" -I \"/host/Ruvo/KELN_Ruvo_Include/ucrt\" -I \"/host/Ruvo/KELN_Ruvo_Include/ucrt/sys\"");
    const size_t deviceHub = line.find(" -I \"/host/Ruvo/KELN_Ruvo_Include/SDK/DeviceHub/BoxRunnerApi\"");
    const size_t libs = line.find(" -L \"/host/Ruvo/KELN_Ruvo_Lib\" -lVarStore \t-lRuvoManager\t-lDeviceHub\t-lHostBridge\t-lCommonKit");
    ASSERT_NE(sources, std::string::npos);
    ASSERT_NE(includes, std::string::npos);
    ASSERT_NE(libs, std::string::npos);
    EXPECT_LT(sources, includes);
    EXPECT_LT(deviceHub, libs);
    EXPECT_EQ(libs + std::string(" -L \"/host/Ruvo/KELN_Ruvo_Lib\" -lVarStore \t-lRuvoManager\t-lDeviceHub\t-lHostBridge\t-lCommonKit").size(),
              line.size());
}

TEST(CompileCommand, FormatterLines) {
    EXPECT_EQ(ruvo::windowsFormatCommand("C:\\H", "D:\\a b.cpp"),
              "C:\\H\\Ruvo\\clang_format\\clang-format.exe -i -style=file:C:\\H\\Ruvo\\clang_format\\.clang-format \"D:\\a b.cpp\"");
    EXPECT_EQ(ruvo::posixFormatCommand("/h", "/a.cpp"),
              "/h/Ruvo/clang_format/clang-format.exe -i -style=file:/h/Ruvo/clang_format/.clang-format \"/a.cpp\"");
}

TEST(CompileOutput, WordSearchDecidesFailure) {
    EXPECT_TRUE(AppletCompiler::outputReportsError("a.cpp:1:2: error: expected ';'"));
    EXPECT_TRUE(AppletCompiler::outputReportsError("1 warning and 0 errors generated."));
    EXPECT_TRUE(AppletCompiler::outputReportsError("/tmp/error/x.cpp: warning: unused"));
    EXPECT_TRUE(AppletCompiler::outputReportsError("error! compile stop! \nCompilation completed.\n"));
    EXPECT_FALSE(AppletCompiler::outputReportsError("1 warning generated.\nCompilation completed.\n"));
    EXPECT_FALSE(AppletCompiler::outputReportsError("myerror_count terrors Error"));
}
