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

TEST(CompileCommand, WindowsLineLeavesPathsWithBlanksUnquoted) {
    // The Windows line is kept as it is: a blank in the code path splits the source argument.
    const ruvo::CompileCommandInput in{"C:\\Host", 1, "D:\\my proj\\a_code\\", "D:\\my proj\\a_mp\\a.mp"};
    const std::string line = ruvo::windowsCompileCommand(in);
    EXPECT_NE(line.find(" D:\\my proj\\a_code\\RuvoBase.cpp D:\\my proj\\a_code\\singleapp.cpp  -shared -o D:\\my proj\\a_mp\\a.mp -isystem"),
              std::string::npos)
        << line;
}

TEST(CompileCommand, PosixArgumentsAreTheSamePiecesInOrderWithoutWindowsFlags) {
    const ruvo::CompileCommandInput in{"/host", 2, "/p/app_code/", "/p/app_mp/app.mp"};
    const std::string inc = "/host/Ruvo/KELN_Ruvo_Include/";
    std::vector<std::string> expected = {
        "/host/Ruvo/clang_compiler/clang++", "-std=c++17", "-flto-jobs=2",
        "-fPIC", "-fvisibility=hidden", "-fvisibility-inlines-hidden", "-Wno-unused-command-line-argument",
        "/p/app_code/RuvoBase.cpp", "/p/app_code/singleapp.cpp",
        "-shared", "-o", "/p/app_mp/app.mp"};
    for (const char* dir : {"ucrt", "ucrt/sys", "HostBridge", "RuvoManager", "RuvoManager/inc", "CommonKit",
                            "SDK", "SDK/CalMaster", "SDK/FrameKit", "SDK/VarStore", "SDK/DeviceHub",
                            "SDK/DeviceHub/EthLinkApi", "SDK/DeviceHub/UsbLinkApi", "SDK/DeviceHub/SimBusApi",
                            "SDK/DeviceHub/BoxApi", "SDK/DeviceHub/BoxRunnerApi"}) {
        expected.push_back("-I");
        expected.push_back(inc + dir);
    }
    for (const char* arg : {"-L", "/host/Ruvo/KELN_Ruvo_Lib", "-lVarStore", "-lRuvoManager", "-lDeviceHub",
                            "-lHostBridge", "-lCommonKit"}) {
        expected.push_back(arg);
    }
    const std::vector<std::string> args = ruvo::posixCompileArguments(in);
    ASSERT_EQ(args.size(), expected.size());
    for (size_t i = 0; i < args.size(); ++i) EXPECT_EQ(args[i], expected[i]) << "argument " << i;
}

TEST(CompileCommand, PosixArgumentsCarryHostilePathsWhole) {
    const std::string odd = "/p/x;touch PWNED $(id) `id` && a | b \"q\" 'q'\n/";
    const ruvo::CompileCommandInput in{"/h o", 1, odd + "a_code/", odd + "a_mp/a.mp"};
    const std::vector<std::string> args = ruvo::posixCompileArguments(in);
    ASSERT_EQ(args.size(), 51u);
    EXPECT_EQ(args[0], "/h o/Ruvo/clang_compiler/clang++");
    EXPECT_EQ(args[7], odd + "a_code/RuvoBase.cpp");
    EXPECT_EQ(args[8], odd + "a_code/singleapp.cpp");
    EXPECT_EQ(args[11], odd + "a_mp/a.mp");
    EXPECT_EQ(args[13], "/h o/Ruvo/KELN_Ruvo_Include/ucrt");
    // A relative path must not turn into an option.
    const ruvo::CompileCommandInput dash{"/h", 1, "-shared/", "-o"};
    const std::vector<std::string> d = ruvo::posixCompileArguments(dash);
    EXPECT_EQ(d[7], "./-shared/RuvoBase.cpp");
    EXPECT_EQ(d[8], "./-shared/singleapp.cpp");
    EXPECT_EQ(d[11], "-o") << "the value of -o is taken as it is";
    // Prebuilt pieces: the prefix before the sources, RuvoBase as an object in its place.
    const std::vector<std::string> p = ruvo::posixCompileArguments(in, {"/h o/x.pch", "/h o/b.o"});
    ASSERT_EQ(p.size(), 53u);
    EXPECT_EQ(std::vector<std::string>(p.begin() + 7, p.begin() + 11),
              (std::vector<std::string>{"-include-pch", "/h o/x.pch", "/h o/b.o", odd + "a_code/singleapp.cpp"}));
}

TEST(CompileCommand, FormatterLines) {
    EXPECT_EQ(ruvo::windowsFormatCommand("C:\\H", "D:\\a b.cpp"),
              "C:\\H\\Ruvo\\clang_format\\clang-format.exe -i -style=file:C:\\H\\Ruvo\\clang_format\\.clang-format \"D:\\a b.cpp\"");
}

TEST(CompileCommand, PosixFormatterArguments) {
    EXPECT_EQ(ruvo::posixFormatArguments("/h", "/a b;c.cpp"),
              (std::vector<std::string>{"/h/Ruvo/clang_format/clang-format.exe", "-i",
                                        "-style=file:/h/Ruvo/clang_format/.clang-format", "/a b;c.cpp"}));
    EXPECT_EQ(ruvo::posixFormatArguments("/h", "-i.cpp").back(), "./-i.cpp");
}

TEST(CompileCommand, RenderedArgumentsReadAsTheyWereGiven) {
    EXPECT_EQ(ruvo::renderArguments({"/bin/cc", "-o", "/a b/x", "it's", "", "a;b", "-lm"}),
              "/bin/cc -o '/a b/x' 'it'\\''s' '' 'a;b' -lm");
}

TEST(CompileOutput, WordSearchDecidesFailure) {
    EXPECT_TRUE(AppletCompiler::outputReportsError("a.cpp:1:2: error: expected ';'"));
    EXPECT_TRUE(AppletCompiler::outputReportsError("1 warning and 0 errors generated."));
    EXPECT_TRUE(AppletCompiler::outputReportsError("/tmp/error/x.cpp: warning: unused"));
    EXPECT_TRUE(AppletCompiler::outputReportsError("error! compile stop! \nCompilation completed.\n"));
    EXPECT_FALSE(AppletCompiler::outputReportsError("1 warning generated.\nCompilation completed.\n"));
    EXPECT_FALSE(AppletCompiler::outputReportsError("myerror_count terrors Error"));
}
