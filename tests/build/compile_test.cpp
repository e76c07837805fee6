// The whole road through ruvo_sdk calls alone, with the real clang++, and the driver's
// failure paths with a fake compiler.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "build/compile_support.h"
#include "test_support.h"

using testing_support::CompileReport;
using testing_support::CompileWaiter;
using testing_support::FakeCompiler;
using testing_support::TempDir;
using testing_support::slurp;
namespace fs = std::filesystem;

namespace {

bool mapped(const std::string& path) {
    return slurp("/proc/self/maps").find(fs::canonical(fs::path(path).parent_path()).string() + "/" +
                                         fs::path(path).filename().string()) != std::string::npos;
}

void setBody(const char* applet, const char* func, const std::string& body) {
    ASSERT_EQ(ruvo_sdk::setRuvoFuncCodeByName(applet, func, body.data(), static_cast<unsigned>(body.size())), 0);
}

// Runs in the tool tree of the build, as the host runs in its installation directory.
class RealCompile : public ::testing::Test {
protected:
    void SetUp() override {
        if (testing_support::compilerMissing(RUVO_TOOL_TREE_DIR)) GTEST_SKIP() << testing_support::kNeedsCompiler;
        previous = fs::current_path();
        fs::current_path(RUVO_TOOL_TREE_DIR);
        ruvo_sdk::initRuvo(project.path().c_str());
    }
    void TearDown() override {
        if (previous.empty()) return;  // skipped
        for (const auto& n : RuvoManager::getInstance().getAppletNameList()) {
            ruvo_sdk::unloadRuvoMp(n.c_str());
            ruvo_sdk::destroyRuvo(n.c_str());
        }
        fs::current_path(previous);
    }
    CompileReport compile(const char* applet) {
        CompileWaiter waiter;
        EXPECT_EQ(ruvo_sdk::compileRuvo(applet, waiter.callback()), 0);
        return waiter.wait();
    }
    TempDir project;
    fs::path previous;
};

}  // namespace

TEST_F(RealCompile, EditorRoadFromBindingToRunningModule) {
    ASSERT_EQ(ruvo_sdk::createRuvo("road", AT_TOOL), 0);
    ASSERT_EQ(ruvo_sdk::genDefaultMainFunction("road"), 0);
    ASSERT_EQ(ruvo_sdk::insertRecvCANId("road", "req", 0x7E0), 0);
    const std::string marker = project.file("ran.txt");
    setBody("road", "mainRun",
            "FILE* f = fopen(\"" + marker + "\", \"w\");\n"
            "if (f) { fprintf(f, \"main ran, tables %s\", &com == &g_com ? \"bound\" : \"unbound\"); fclose(f); }\n");
    setBody("road", "on_can_rx_req",
            "ACAN->FData[0] = static_cast<u8>(ACAN->Id & 0xFF);\n"
            "ACAN->FData[1] = ACAN->dlc;\nACAN->byteDataLen = 2;\nACAN->dir = 1;\n");

    const CompileReport report = compile("road");
    ASSERT_EQ(report.result, CR_SUCCESS) << report.text;
    EXPECT_EQ(report.applet, "road");
    const std::string tail = "Compilation completed.\n";
    EXPECT_EQ(report.text.substr(report.text.size() - tail.size()), tail);
    EXPECT_TRUE(fs::exists(project.file("road_code/appletCfg.ruvo")));
    EXPECT_TRUE(fs::exists(project.file("road_mp/road.mp")));

    EXPECT_EQ(ruvo_sdk::loadRuvoMp("road"), 0);
    void* handle = RuvoManager::getInstance().getApplet("road")->getMpHandle();
    EXPECT_EQ(ruvo_sdk::loadRuvoMp("road"), 0);
    EXPECT_EQ(RuvoManager::getInstance().getApplet("road")->getMpHandle(), handle) << "loaded twice";

    void* rx = ruvo_sdk::getRuvoFuncAddr("road", "on_can_rx_req");
    ASSERT_NE(rx, nullptr);
    EXPECT_NE(ruvo_sdk::getRuvoFuncAddr("road", "mainRun"), nullptr);
    EXPECT_NE(ruvo_sdk::getRuvoFuncAddr("road", "intKelnCompltInfo"), nullptr);
    EXPECT_EQ(ruvo_sdk::getRuvoFuncAddr("road", "init"), nullptr) << "only handlers are exported";
    EXPECT_EQ(ruvo_sdk::getRuvoFuncAddr("road", "nothing"), nullptr);
    EXPECT_EQ(ruvo_sdk::getRuvoFuncAddr("nobody", "mainRun"), nullptr);

    // The record crosses from this library into the clang-built module with one layout.
    _KelnCan frame{};
    frame.Id = 0x7E0;
    frame.dlc = 8;
    reinterpret_cast<void (*)(_KelnCan*)>(rx)(&frame);
    EXPECT_EQ(frame.FData[0], 0xE0);
    EXPECT_EQ(frame.FData[1], 8);
    EXPECT_EQ(frame.byteDataLen, 2);
    EXPECT_EQ(frame.dir, 1u);
    EXPECT_EQ(frame.Id, 0x7E0u);

    EXPECT_EQ(ruvo_sdk::runRuvoFunc("road", "mainRun"), 0);
    EXPECT_EQ(slurp(marker), "main ran, tables bound");
    EXPECT_EQ(ruvo_sdk::runRuvoFunc("road", "on_can_rx_req"), 0);  // needs a frame: "not supported"
    EXPECT_EQ(ruvo_sdk::runRuvoFunc("nobody", "mainRun"), -1);
}

TEST_F(RealCompile, EveryServiceDemoCompilesAsTheEditorShowsIt) {
    // The demos are what authors paste: each must compile against the tables' slot types.
    ASSERT_EQ(ruvo_sdk::createRuvo("demos", AT_TOOL), 0);
    const int n = ruvo_sdk::getRuvoInnerFuncCount("demos");
    std::vector<_KelnFunction> records(static_cast<size_t>(n));
    unsigned count = 0;
    ASSERT_EQ(ruvo_sdk::getRuvoInnerFuncs("demos", records.data(), &count), 0);
    std::string body = "KelnCan can{};  // the CAN demos send a frame the author has\n";
    for (unsigned i = 0; i < count; ++i) {
        _KelnFunction info{};
        std::vector<char> demo(8192, '\0');
        int subType = 0;
        ASSERT_EQ(ruvo_sdk::getRuvoInnerFuncInfo("demos", records[i].name, &info, demo.data(), &subType), 0);
        body += "{\n" + std::string(demo.data()) + "\n}\n";
    }
    ASSERT_EQ(ruvo_sdk::genDefaultMainFunction("demos"), 0);
    setBody("demos", "mainRun", body);
    const CompileReport report = compile("demos");
    EXPECT_EQ(report.result, CR_SUCCESS) << report.text;
}

TEST_F(RealCompile, RecompiledModuleReplacesTheOldOneInTheSameProcess) {
    ASSERT_EQ(ruvo_sdk::createRuvo("again", AT_TOOL), 0);
    ruvo_sdk::genDefaultMainFunction("again");
    char* args[] = {const_cast<char*>("version"), const_cast<char*>("")};
    ASSERT_EQ(ruvo_sdk::createRuvoFunc("again", "version", RFT_SELF_DEFINE, args, 2), 0);
    setBody("again", "version", "return 1;");
    ASSERT_EQ(compile("again").result, CR_SUCCESS);
    ASSERT_EQ(ruvo_sdk::loadRuvoMp("again"), 0);
    const std::string module = project.file("again_mp/again.mp");
    auto version = reinterpret_cast<s32 (*)()>(ruvo_sdk::getRuvoFuncAddr("again", "version"));
    ASSERT_NE(version, nullptr);
    EXPECT_EQ(version(), 1);
    EXPECT_TRUE(mapped(module));

    ASSERT_EQ(ruvo_sdk::unloadRuvoMp("again"), 0);
    EXPECT_FALSE(mapped(module)) << "the old module is still mapped after unload";

    setBody("again", "version", "return 2;");
    ASSERT_EQ(compile("again").result, CR_SUCCESS);
    ASSERT_EQ(ruvo_sdk::loadRuvoMp("again"), 0);
    version = reinterpret_cast<s32 (*)()>(ruvo_sdk::getRuvoFuncAddr("again", "version"));
    ASSERT_NE(version, nullptr);
    EXPECT_EQ(version(), 2);
}

TEST_F(RealCompile, ToolCodeIsBuiltIntoAToolApplet) {
    const std::string code = "extern \"C\" __declspec(dllexport) int tool_answer() { return 42; }\n";
    CompileWaiter waiter;
    ASSERT_EQ(ruvo_sdk::loadToolRuvoCode("tool", "toolMain", code.data(), static_cast<unsigned>(code.size()),
                                         waiter.callback()),
              0);
    const CompileReport report = waiter.wait();
    ASSERT_EQ(report.result, CR_SUCCESS) << report.text;
    auto answer = reinterpret_cast<int (*)()>(ruvo_sdk::getRuvoFuncAddr("tool", "tool_answer"));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer(), 42);
    EXPECT_EQ(RuvoManager::getInstance().getApplet("tool")->getType(), AT_TOOL);
}

namespace {

// What a shell would run if it saw the path; as an argument it is only a name.
const char* const kHostileDir =
    "p;touch PWNED $(touch PWNED) `touch PWNED` && touch PWNED | touch PWNED \"q\" 'q' x";

// Every file named PWNED below `dir`.
std::vector<std::string> pwned(const fs::path& dir) {
    std::vector<std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(dir)) {
        if (entry.path().filename() == "PWNED") found.push_back(entry.path().string());
    }
    return found;
}

}  // namespace

TEST_F(RealCompile, HostileProjectPathCompilesAndRunsNothing) {
    const fs::path cwd = fs::current_path();
    fs::remove(cwd / "PWNED");
    const std::string hostile = project.file(kHostileDir);
    fs::create_directories(hostile);
    ruvo_sdk::initRuvo(hostile.c_str());

    // Blanks included: on POSIX the path is one argument, so the compile succeeds.
    ASSERT_EQ(ruvo_sdk::createRuvo("good", AT_TOOL), 0);
    ASSERT_EQ(ruvo_sdk::genDefaultMainFunction("good"), 0);
    const CompileReport good = compile("good");
    EXPECT_EQ(good.result, CR_SUCCESS) << good.text;
    EXPECT_TRUE(fs::exists(hostile + "/good_mp/good.mp"));
    EXPECT_EQ(ruvo_sdk::loadRuvoMp("good"), 0);

    // And a broken applet there fails with the compiler's own words about the right file.
    ASSERT_EQ(ruvo_sdk::createRuvo("bad", AT_TOOL), 0);
    ASSERT_EQ(ruvo_sdk::genDefaultMainFunction("bad"), 0);
    setBody("bad", "mainRun", "int x = ;\n");
    const CompileReport bad = compile("bad");
    EXPECT_EQ(bad.result, CR_FAILURE);
    EXPECT_NE(bad.text.find(hostile + "/bad_code/singleapp.cpp"), std::string::npos) << bad.text;
    EXPECT_NE(bad.text.find("error: expected expression"), std::string::npos) << bad.text;

    EXPECT_FALSE(fs::exists(cwd / "PWNED"));
    EXPECT_EQ(pwned(project.path()), std::vector<std::string>());
}

TEST_F(RealCompile, FormatterRewritesInPlaceTakesAHostilePathWholeAndAlwaysAnswersZero) {
    const std::string dir = project.file("a b;touch PWNED");
    fs::create_directories(dir);
    const std::string file = dir + "/x y;$(touch PWNED).cpp";
    std::ofstream(file) << "int  f( ){return 1 ;}\n";
    EXPECT_EQ(ruvo_sdk::formatFile(file.c_str()), 0);
    EXPECT_EQ(slurp(file), "int f() { return 1; }\n");
    EXPECT_EQ(AppletCompiler::instance().format(file), 0);
    EXPECT_EQ(pwned(project.path()), std::vector<std::string>());
    EXPECT_FALSE(fs::exists(fs::current_path() / "PWNED"));
    EXPECT_EQ(ruvo_sdk::formatFile(project.file("missing.cpp").c_str()), 0);
}

TEST_F(RealCompile, FormatterShowsTheToolsErrorPipeApartAfterAFailedRun) {
    testing::internal::CaptureStdout();
    const int r = AppletCompiler::instance().format(project.file("missing.cpp"));
    const std::string shown = testing::internal::GetCapturedStdout();
    EXPECT_EQ(r, -3);
    EXPECT_EQ(shown.find("clang-format output:"), std::string::npos) << shown;
    ASSERT_EQ(shown.rfind("clang-format error:\n", 0), 0u) << shown;
    EXPECT_NE(shown.find("No such file or directory"), std::string::npos) << shown;
}

TEST(CompileCalls, UnknownAppletAndEmptyCallbackGiveMinusOneAndNoCallback) {
    TempDir project;
    ruvo_sdk::initRuvo(project.path().c_str());
    CompileWaiter waiter;
    EXPECT_EQ(ruvo_sdk::compileRuvo("nobody", waiter.callback()), -1);
    EXPECT_EQ(ruvo_sdk::compileRuvoNoSave("nobody", waiter.callback()), -1);
    ASSERT_EQ(ruvo_sdk::createRuvo("quiet", AT_TOOL), 0);
    EXPECT_EQ(ruvo_sdk::compileRuvo("quiet", RuvoCompileCallback()), -1);
    EXPECT_FALSE(fs::exists(project.file("quiet_code/appletCfg.ruvo"))) << "nothing saved";
    EXPECT_EQ(ruvo_sdk::compileRuvoNoSave("quiet", RuvoCompileCallback()), -1);
    ruvo_sdk::stopCompileRuvo("nobody");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(waiter.calls(), 0);
    ruvo_sdk::destroyRuvo("quiet");
}

TEST_F(FakeCompiler, MissingCompilerIsAStartFailure) {
    CompileWaiter waiter;
    ASSERT_EQ(ruvo_sdk::compileRuvo("fake", waiter.callback()), 0);
    const CompileReport report = waiter.wait();
    EXPECT_EQ(report.result, CR_FAILURE);
    EXPECT_EQ(report.text,
              "CreateProcess failed: 2. Please check if clang++. exe exists or if the file to be compiled exists.");
}

TEST_F(FakeCompiler, BothStreamsAreCapturedAndThePluralCountsAsFailure) {
    installCompiler("echo compiling; echo '1 warning and 0 errors generated.' >&2; exit 0");
    CompileWaiter waiter;
    ASSERT_EQ(ruvo_sdk::compileRuvoNoSave("fake", waiter.callback()), 0);
    const CompileReport report = waiter.wait();
    EXPECT_EQ(report.result, CR_FAILURE);
    EXPECT_EQ(report.text, "compiling\n1 warning and 0 errors generated.\nCompilation completed.\n");
}

TEST_F(FakeCompiler, ExitCodeAloneDoesNotFail) {
    installCompiler("echo 'all fine'; exit 3");
    CompileWaiter waiter;
    ASSERT_EQ(ruvo_sdk::compileRuvo("fake", waiter.callback()), 0);
    EXPECT_EQ(waiter.wait().result, CR_SUCCESS);
    EXPECT_TRUE(fs::exists(project.file("fake_code/RuvoBase.cpp")) == false) << "no base files in this tree";
}

TEST_F(FakeCompiler, StopDuringACompileReportsFailureWithTheStopText) {
    installCompiler("echo started; sleep 30; echo finished");
    CompileWaiter waiter;
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(ruvo_sdk::compileRuvo("fake", waiter.callback()), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ruvo_sdk::stopCompileRuvo("fake");
    const CompileReport report = waiter.wait(20);
    EXPECT_EQ(report.result, CR_FAILURE);
    EXPECT_EQ(report.text.rfind("error! compile stop! \n", 0), 0u) << report.text;
    EXPECT_EQ(report.text.find("finished"), std::string::npos);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    ruvo_sdk::stopCompileRuvo("fake");  // long ended: the text is replaced, nothing else happens
    EXPECT_EQ(AppletCompiler::instance().output(), report.text);
}

TEST_F(FakeCompiler, FormatterMissingIsAStartFailureOnStandardError) {
    testing::internal::CaptureStderr();
    const int r = AppletCompiler::instance().format(project.file("any.cpp"));
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(r, -2);
    EXPECT_EQ(said, "CreateProcessA(clang-format) failed: 2\n");
    EXPECT_EQ(ruvo_sdk::formatFile(project.file("any.cpp").c_str()), 0);
}

TEST_F(FakeCompiler, ArgumentsReachTheCompilerOneByOne) {
    // The arguments reach the compiler as they are; it echoes them back.
    installCompiler("for a in \"$@\"; do printf '%s\\n' \"$a\"; done");
    CompileWaiter waiter;
    ASSERT_EQ(ruvo_sdk::compileRuvo("fake", waiter.callback()), 0);
    const CompileReport report = waiter.wait();
    EXPECT_EQ(report.result, CR_SUCCESS) << report.text;
    EXPECT_NE(report.text.find("\n" + project.path() + "/fake_code/singleapp.cpp\n-shared\n-o\n" +
                               project.path() + "/fake_mp/fake.mp\n"),
              std::string::npos)
        << report.text;
}
