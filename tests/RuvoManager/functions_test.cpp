#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "RuvoManager/ruvo_sdk.h"
#include "test_support.h"

using testing_support::TempDir;

namespace {

_KelnVar var(const char* name, KelnVarType type, const char* value) {
    Parameter p;
    p.setName(name);
    p.setType(type);
    p.setValueStr(value);
    return p;
}

RuvoFunction inner(const char* name) {
    RuvoFunction f;
    f.setName(name);
    f.setType(FT_INNER);
    f.setSubType(TFT_COM);
    return f;
}

class SdkCalls : public ::testing::Test {
protected:
    void SetUp() override {
        ruvo_sdk::initRuvo(dir.path().c_str());
        ASSERT_EQ(ruvo_sdk::createRuvo("app", AT_TOOL), 0);
    }
    void TearDown() override {
        for (const auto& n : RuvoManager::getInstance().getAppletNameList()) {
            ruvo_sdk::destroyRuvo(n.c_str());
        }
    }
    TempDir dir;
};

// An applet whose inner-function supplier offers two services, as the service tables will.
class SdkCallsWithInnerFunctions : public SdkCalls {
protected:
    void SetUp() override {
        MpInfo::setDefaultInnerFuncs([] {
            return std::list<RuvoFunction>{inner("send_can_async"), inner("wait_can_msg")};
        });
        SdkCalls::SetUp();
        MpInfo::setDefaultInnerFuncs(nullptr);
        ruvo_sdk::genDefaultMainFunction("app");
        ruvo_sdk::setRuvoFuncCodeByName("app", "mainRun", "go();", 5);
    }
};

}  // namespace

TEST_F(SdkCalls, VariablesSetAddGetAndClear) {
    const _KelnVar vars[] = {var("a", KVT_S32, "1"), var("b", KVT_DOUBLE, "2"),
                             var("c", KVT_BOOL, "true"), var("a", KVT_S32, "4"),
                             var("e", KVT_U8, "5")};
    EXPECT_EQ(ruvo_sdk::setRuvoVar("app", vars, 5), 0);
    _KelnVar out[5];
    unsigned count = 2;
    EXPECT_EQ(ruvo_sdk::getRuvoVar("app", out, &count), 0);
    EXPECT_EQ(count, 2u);
    EXPECT_STREQ(out[1].name, "b");
    count = 99;
    ruvo_sdk::getRuvoVar("app", out, &count);
    EXPECT_EQ(count, 5u);

    EXPECT_EQ(ruvo_sdk::addRuvoVar("app", vars, 1), 0);  // duplicates stay
    count = 99;
    ruvo_sdk::getRuvoVar("app", nullptr, &count);
    EXPECT_EQ(count, 6u);

    _KelnVar byName;
    EXPECT_EQ(ruvo_sdk::getRuvoVarByName("app", "e", &byName), 0);
    EXPECT_EQ(Parameter(byName).getValueStr(), "5");
    _KelnVar untouched;
    std::strcpy(untouched.name, "sentinel");
    EXPECT_EQ(ruvo_sdk::getRuvoVarByName("app", "zz", &untouched), 0);
    EXPECT_STREQ(untouched.name, "sentinel");

    _KelnVar changed = var("b", KVT_DOUBLE, "9");
    EXPECT_EQ(ruvo_sdk::updateRuvoVar("app", "b", &changed), 0);
    EXPECT_EQ(ruvo_sdk::updateRuvoVar("app", "zz", &changed), -1);
    EXPECT_EQ(ruvo_sdk::delRuvoVar("app", "zz"), 0);
    EXPECT_EQ(ruvo_sdk::setRuvoVar("app", nullptr, 0), 0);
    count = 99;
    ruvo_sdk::getRuvoVar("app", out, &count);
    EXPECT_EQ(count, 0u);
    ruvo_sdk::clearRuvoVar("nobody");
}

TEST_F(SdkCalls, UnknownAppletGivesMinusOneWithTheStatedExceptions) {
    unsigned count = 1;
    _KelnVar v;
    EXPECT_EQ(ruvo_sdk::setRuvoVar("nobody", &v, 1), -1);
    EXPECT_EQ(ruvo_sdk::getRuvoVar("nobody", &v, &count), -1);
    EXPECT_EQ(ruvo_sdk::getRuvoUserFuncCount("nobody"), -1);
    EXPECT_EQ(ruvo_sdk::getRuvoFuncCount("nobody"), 0);
    EXPECT_EQ(ruvo_sdk::setRuvoFuncCodeByName("nobody", "f", "x", 1), 0);
    EXPECT_EQ(ruvo_sdk::getRuvoFuncInfoByPos("nobody", 0, nullptr, nullptr), 0);
    char code[4] = "abc";
    unsigned size = 7;
    EXPECT_EQ(ruvo_sdk::getRuvoFuncCodeByName("nobody", "f", code, &size), 0);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(ruvo_sdk::getRuvoFuncCodeByPos("nobody", 0, code, &size), -1);
    EXPECT_EQ(ruvo_sdk::setRuvoFuncCodeByPos("nobody", 0, "x", 1), -1);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("nobody", "f"), -1);
    EXPECT_EQ(ruvo_sdk::createRuvoFunc("nobody", "f", 0, nullptr, 0), -1);
    EXPECT_EQ(ruvo_sdk::genDefaultMainFunction("nobody"), -1);
}

TEST_F(SdkCalls, CreateFunctionsAndReadTheirCode) {
    char* args[] = {const_cast<char*>("calc"), const_cast<char*>("s32 a, u8 b")};
    EXPECT_EQ(ruvo_sdk::createRuvoFunc("app", "calc", RFT_SELF_DEFINE, args, 2), 0);
    EXPECT_EQ(ruvo_sdk::createRuvoFunc("app", "bad", RFT_SELF_DEFINE, args, 1), -1);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("app", "calc"), 0);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("app", "bad"), -1);

    EXPECT_EQ(ruvo_sdk::setRuvoFuncCodeByName("app", "calc", "return a + b;XYZ", 13), 0);
    EXPECT_EQ(ruvo_sdk::setRuvoFuncCodeByName("app", "absent", "x", 1), -1);
    int body = 0, forward = 0, backward = 0;
    ASSERT_EQ(ruvo_sdk::getRuvoFuncCodeSize("app", "calc", &body, &forward, &backward), 0);
    EXPECT_EQ(body, 14);
    std::vector<char> b(body), f(forward), k(backward);
    ASSERT_EQ(ruvo_sdk::getRuvoFuncCode("app", "calc", b.data(), f.data(), k.data()), 0);
    EXPECT_STREQ(b.data(), "return a + b;");
    EXPECT_STREQ(f.data(), "s32 calc(s32 a, u8 b) { try { // 自定义函数");
    EXPECT_EQ(ruvo_sdk::getRuvoFuncCode("app", "absent", b.data(), f.data(), k.data()), -1);
    EXPECT_EQ(ruvo_sdk::getRuvoFuncCodeSize("app", "absent", &body, &forward, &backward), -1);

    char code[64];
    std::memset(code, '#', sizeof(code));
    unsigned size = 0;
    EXPECT_EQ(ruvo_sdk::getRuvoFuncCodeByName("app", "calc", code, &size), 0);
    EXPECT_EQ(size, 13u);
    EXPECT_EQ(std::string(code, 14), "return a + b;#");  // no terminator of its own
}

TEST_F(SdkCalls, UserFunctionsCountIgnoresCallerCapacity) {
    ruvo_sdk::genDefaultMainFunction("app");
    ruvo_sdk::createRuvoFunc("app", "on_start_x", RFT_PROGRAM_START, nullptr, 0);
    EXPECT_EQ(ruvo_sdk::getRuvoUserFuncCount("app"), 2);
    _KelnFunction funcs[2];
    int subTypes[2] = {-5, -5};
    unsigned count = 0;
    EXPECT_EQ(ruvo_sdk::getRuvoUserFuncs("app", funcs, subTypes, &count), 0);
    EXPECT_EQ(count, 2u);
    EXPECT_STREQ(funcs[0].name, "mainRun");
    EXPECT_EQ(subTypes[1], RFT_PROGRAM_START);
}

TEST_F(SdkCalls, MainFunctionIsReplacedOnEveryCall) {
    ruvo_sdk::genDefaultMainFunction("app");
    ruvo_sdk::setRuvoFuncCodeByName("app", "mainRun", "old", 3);
    ruvo_sdk::genDefaultMainFunction("app");
    unsigned size = 0;
    char code[64];
    ruvo_sdk::getRuvoFuncCodeByName("app", "mainRun", code, &size);
    EXPECT_EQ(std::string(code, size), "//To do something\n");
    EXPECT_EQ(RuvoManager::getInstance().getAppletMainPort("app"), "mainRun");
}

TEST_F(SdkCalls, SetFuncUpdatesPresentRecordOrAddsWithSubTypeFromMainFlag) {
    _KelnFunction record;
    std::strcpy(record.name, "fresh");
    EXPECT_EQ(ruvo_sdk::setRuvoFunc("app", &record, FT_APPLET), 0);
    MpRuvo* a = RuvoManager::getInstance().getApplet("app");
    EXPECT_EQ(a->findFunc("fresh").getSubType(), RFT_SELF_DEFINE);
    EXPECT_EQ(a->findFunc("fresh").getType(), FT_APPLET);
    std::strcpy(record.name, "entry");
    record.mainFuncFlag = true;
    ruvo_sdk::setRuvoFunc("app", &record, FT_APPLET);
    EXPECT_EQ(a->findFunc("entry").getSubType(), RFT_MAIN_RUN);

    a->setFuncBodyCode("fresh", "kept");
    std::strcpy(record.name, "fresh");
    std::strcpy(record.desc, "described");
    record.mainFuncFlag = false;
    EXPECT_EQ(ruvo_sdk::setRuvoFunc("app", &record, FT_INNER), 0);
    EXPECT_EQ(a->findFunc("fresh").getDesc(), "described");
    EXPECT_EQ(a->findFunc("fresh").getBodyCode(), "kept");
    EXPECT_EQ(ruvo_sdk::setRuvoFunc("app", nullptr, FT_APPLET), -1);
}

TEST_F(SdkCalls, AdditionStringsAreAllocatedForTheCaller) {
    ruvo_sdk::genDefaultMainFunction("app");
    int size = 0;
    EXPECT_EQ(ruvo_sdk::getRuvoFuncAdditionInfoSize("app", "mainRun", &size), 0);
    EXPECT_EQ(size, 1);
    char* out[1] = {nullptr};
    EXPECT_EQ(ruvo_sdk::getRuvoFuncAdditionInfo("app", "mainRun", out), 0);
    EXPECT_STREQ(out[0], "mainRun");
    std::free(out[0]);
    ruvo_sdk::createRuvoFunc("app", "on_stop_x", RFT_PROGRAM_STOP, nullptr, 0);
    EXPECT_EQ(ruvo_sdk::getRuvoFuncAdditionInfoSize("app", "on_stop_x", &size), -1);
    EXPECT_EQ(size, 0);
}

TEST_F(SdkCalls, DependenciesAndDeletion) {
    ruvo_sdk::genDefaultMainFunction("app");
    char* args[] = {const_cast<char*>("h"), const_cast<char*>("")};
    ruvo_sdk::createRuvoFunc("app", "h", RFT_SELF_DEFINE, args, 2);
    EXPECT_EQ(ruvo_sdk::addRuvoFuncDepend("app", "mainRun", "h"), 0);
    MpRuvo* a = RuvoManager::getInstance().getApplet("app");
    EXPECT_EQ(a->findFunc("h").getParentFuncs(), std::list<std::string>{"mainRun"});
    EXPECT_EQ(ruvo_sdk::removeRuvoFuncDepend("app", "mainRun", "h"), 0);
    EXPECT_TRUE(a->findFunc("mainRun").getDependFuncs().empty());
    EXPECT_EQ(ruvo_sdk::deleteFunc("app", "h"), 0);
    EXPECT_EQ(ruvo_sdk::deleteFunc("app", "h"), 0);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("app", "h"), -1);
}

TEST_F(SdkCalls, ClearFunctionsAndEvents) {
    MpRuvo* a = RuvoManager::getInstance().getApplet("app");
    a->insertRecvCANId("r", 1);
    a->insertTimer("t", 5);
    ruvo_sdk::genDefaultMainFunction("app");
    EXPECT_EQ(ruvo_sdk::clearRuvoEvent("app"), 0);
    EXPECT_TRUE(a->getRecvCANId().empty());
    EXPECT_TRUE(a->getTimers().empty());
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("app", "on_can_rx_r"), -1);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("app", "mainRun"), 0);
    EXPECT_EQ(ruvo_sdk::clearRuvoFunc("app"), 0);
    EXPECT_EQ(ruvo_sdk::getRuvoUserFuncCount("app"), 0);
}

TEST_F(SdkCallsWithInnerFunctions, PositionSequencePutsInnerFunctionsFirst) {
    EXPECT_EQ(ruvo_sdk::getRuvoFuncCount("app"), 3);
    EXPECT_EQ(ruvo_sdk::getRuvoUserFuncCount("app"), 1);
    _KelnFunction funcs[3];
    int subTypes[3] = {0, 0, 0};
    EXPECT_EQ(ruvo_sdk::getRuvoFuncInfoByPos("app", 0, funcs, subTypes), -1);
    EXPECT_STREQ(funcs[0].name, "");  // nothing written
    EXPECT_EQ(ruvo_sdk::getRuvoFuncInfoByPos("app", 3, funcs, subTypes), 0);
    EXPECT_STREQ(funcs[0].name, "send_can_async");
    EXPECT_EQ(subTypes[1], TFT_COM);
    EXPECT_STREQ(funcs[2].name, "mainRun");
    EXPECT_EQ(subTypes[2], RFT_MAIN_RUN);
}

TEST_F(SdkCallsWithInnerFunctions, CodeByPositionIsAlwaysEmptyAndSetByPositionChangesNothing) {
    char code[32] = "zzz";
    unsigned size = 9;
    EXPECT_EQ(ruvo_sdk::getRuvoFuncCodeByPos("app", 2, code, &size), 0);
    EXPECT_EQ(code[0], '\0');
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(ruvo_sdk::getRuvoFuncCodeByPos("app", 3, code, &size), -1);
    EXPECT_EQ(ruvo_sdk::setRuvoFuncCodeByPos("app", 2, "new", 3), 0);
    EXPECT_EQ(ruvo_sdk::setRuvoFuncCodeByPos("app", 3, "new", 3), -1);
    ruvo_sdk::getRuvoFuncCodeByName("app", "mainRun", code, &size);
    EXPECT_EQ(std::string(code, size), "go();");
}
