// The service tables as modules see them, the CAN services and the editor's inner functions.
#include <gtest/gtest.h>

#include <thread>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"
#include "host/dbc/dbc_config.h"

namespace {

struct Measurement {
    Measurement() { ruvo_sdk::kelnStartup(); }
    ~Measurement() { ruvo_sdk::kelnStop(); }
};

std::vector<std::shared_ptr<MsgHeaderBase>> transmittedBy(const std::function<void()>& action) {
    std::vector<std::shared_ptr<MsgHeaderBase>> out;
    const int id = hostbridge::addTransmitListener([&](const std::shared_ptr<MsgHeaderBase>& m) { out.push_back(m); });
    action();
    hostbridge::removeTransmitListener(id);
    return out;
}

}  // namespace

TEST(ServiceTables, ExportedCopiesHoldTheServicesInTheirSlots) {
    EXPECT_NE(g_com.owner, nullptr);
    EXPECT_NE(g_com.init_can, nullptr);
    EXPECT_NE(g_com.send_uds_async, nullptr) << "an unbuilt service is never null";
    EXPECT_EQ(g_com.reserved7, nullptr);
    EXPECT_EQ(g_com.reserved[15], nullptr);
    EXPECT_EQ(g_com.send_canfd_sync, g_com.send_can_sync);
    EXPECT_NE(g_clog.info_ex, nullptr);
    EXPECT_NE(g_cb.notify_process, nullptr);
    EXPECT_EQ(g_var.constants[0], nullptr);
    EXPECT_NE(g_xcp.program_format_cb, nullptr);
    EXPECT_EQ(reinterpret_cast<void* const*>(&g_com)[2], reinterpret_cast<void*>(g_com.send_can_async));
    EXPECT_EQ(reinterpret_cast<void* const*>(&g_com)[17], reinterpret_cast<void*>(g_com.wait_can_msg));
    EXPECT_EQ(reinterpret_cast<void* const*>(&g_com)[21], reinterpret_cast<void*>(g_com.send_and_recv_can_msg));
}

TEST(CanServices, InitChecksItsArguments) {
    KelnCan can{};
    can.FData[20] = 0x77;
    EXPECT_EQ(g_com.init_can(0x11, 9, &can), -1);
    EXPECT_EQ(can.Id, 0u);
    EXPECT_EQ(g_com.init_can(0x80000000u, 8, &can), -1);
    EXPECT_EQ(g_com.init_can(0x11, 8, nullptr), -1);
    EXPECT_EQ(g_com.init_can(0x7FFFFFFF, 8, &can), 0);
    EXPECT_EQ(can.Id, 0x1FFFFFFFu);
    EXPECT_EQ(can.dir, 1u);
    EXPECT_EQ(can.fd, 0);
    EXPECT_EQ(can.byteDataLen, 8);
    EXPECT_GT(can.curtime, 1600000000000000ull);
    EXPECT_EQ(g_com.init_canfd(0x11, 9, &can), 0);
    EXPECT_EQ(can.byteDataLen, 12);
    EXPECT_EQ(can.fd, 1);
    EXPECT_EQ(g_com.init_canfd(0x11, 15, &can), 0);
    EXPECT_EQ(can.byteDataLen, 64);
    EXPECT_EQ(can.FData[20], 0);
    EXPECT_EQ(g_com.init_canfd(0x11, 16, &can), -1);
}

TEST(CanServices, SendTakesLengthFromDlcAndMapsHostResults) {
    KelnCan can{};
    g_com.init_can(0x321, 8, &can);
    can.byteDataLen = 3;
    EXPECT_EQ(g_com.send_can_async(&can), 1) << "-4 from the host (not started) gives 1";
    EXPECT_EQ(can.byteDataLen, 8);
    Measurement m;
    const auto out = transmittedBy([&] { EXPECT_EQ(g_com.send_can_async(&can), 0); });
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(KELN::CanMsgAnalyse::getCanHeader(out[0])->length, 8);
    EXPECT_EQ(KELN::CanMsgAnalyse::getCanHeader(out[0])->identifier, 0x321u);
}

TEST(CanServices, FdFlagFollowsTheServiceNotTheFrame) {
    Measurement m;
    KelnCan fdFrame{};
    g_com.init_canfd(0x100, 12, &fdFrame);
    KelnCan classic{};
    g_com.init_can(0x101, 8, &classic);
    const auto out = transmittedBy([&] {
        g_com.send_canfd_sync(&fdFrame);
        g_com.send_canfd_async(&classic);
    });
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(KELN::CanMsgAnalyse::getCanHeader(out[0])->fd, 0) << "the sync form clears fd";
    EXPECT_EQ(KELN::CanMsgAnalyse::getCanHeader(out[0])->length, 24) << "dlc 12 is 24 bytes";
    EXPECT_EQ(KELN::CanMsgAnalyse::getCanHeader(out[1])->fd, 1);
}

TEST(CanServices, WaitReturnsAFrameInjectedFromAnotherThreadOrTimesOut) {
    KelnCan got{};
    std::thread feeder([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        const unsigned char data[] = {0xAB};
        hostbridge::injectReceived({hostbridge::makeCanFrame(0, 1, 0x55, false, false, false, data, 1)});
    });
    EXPECT_EQ(g_com.wait_can_msg(&got, 2000), 0);
    feeder.join();
    EXPECT_EQ(got.Id, 0x55u);
    EXPECT_EQ(got.canNo, 1);
    EXPECT_EQ(got.FData[0], 0xAB);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(g_com.wait_can_msg(&got, 30), -1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
    EXPECT_EQ(g_com.wait_can_msg(nullptr, 10), -1);
    EXPECT_EQ(g_com.wait_can_msg(&got, 0), -1) << "a timeout of 0 still tries once";
}

TEST(CanServices, SendAndReceiveIsAStubAndSignalsComeFromTheLoadedDatabases) {
    KelnCan a{}, b{};
    b.Id = 7;
    EXPECT_EQ(g_com.send_and_recv_can_msg(&a, &b, 100), 0);
    EXPECT_EQ(b.Id, 7u);
    u8 data[64] = {0};
    EXPECT_EQ(g_com.calculate_can_message("COUNTER", 160, 0, 1.0, data), -1) << "no database loaded";
    std::string error;
    ASSERT_TRUE(hostbridge::dbc::workstationDatabases().add(0, RUVO_TEST_DATA "/dbc/hyundai_canfd.dbc", "", error)) << error;
    // COUNTER of WHEEL_SPEEDS (0xA0): 8 bits from bit 16, Intel.
    EXPECT_EQ(g_com.calculate_can_message("COUNTER", 160, 0, 0xAB, data), 0);
    EXPECT_EQ(data[2], 0xAB);
    EXPECT_EQ(g_com.calculate_can_message("COUNTER", 160, 5, 1.0, data), -1) << "not on channel 5";
    EXPECT_EQ(g_com.calculate_can_message("NO_SUCH", 160, 0, 1.0, data), -1);
    hostbridge::dbc::workstationDatabases().clear();
}

namespace {
class InnerFunctions : public ::testing::Test {
protected:
    void SetUp() override {
        ruvo_sdk::initRuvo("/tmp");
        ruvo_sdk::createRuvo("inner", AT_TOOL);
    }
    void TearDown() override { ruvo_sdk::destroyRuvo("inner"); }
};
}  // namespace

TEST_F(InnerFunctions, CombinedListHasComGenVarClogXcpInThatOrder) {
    const int n = ruvo_sdk::getRuvoInnerFuncCount("inner");
    EXPECT_EQ(n, 17 + 5 + 31 + 4 + 70);
    std::vector<_KelnFunction> funcs(static_cast<size_t>(n));
    unsigned count = 0;
    ASSERT_EQ(ruvo_sdk::getRuvoInnerFuncs("inner", funcs.data(), &count), 0);
    EXPECT_EQ(count, static_cast<unsigned>(n));
    EXPECT_STREQ(funcs[0].name, "init_can");
    EXPECT_STREQ(funcs[0].prefix, "com");
    EXPECT_STREQ(funcs[17].name, "connect");
    EXPECT_STREQ(funcs[22].name, "add_system_var_double");
    EXPECT_STREQ(funcs[22].desc, "添加double类型的系统变量");
    EXPECT_STREQ(funcs[53].name, "info");
    EXPECT_STREQ(funcs[57].name, "initialize_can");
    EXPECT_STREQ(funcs[n - 1].name, "program_format_cb");
    EXPECT_EQ(ruvo_sdk::getRuvoFuncCount("inner"), n);
    unsigned untouched = 99;
    EXPECT_EQ(ruvo_sdk::getRuvoInnerFuncs("nobody", funcs.data(), &untouched), -1);
    EXPECT_EQ(untouched, 99u);
}

TEST_F(InnerFunctions, InfoAndSearch) {
    _KelnFunction f;
    char demo[256] = {0};
    int subType = 0;
    ASSERT_EQ(ruvo_sdk::getRuvoInnerFuncInfo("inner", "init_can", &f, demo, &subType), 0);
    EXPECT_EQ(subType, TFT_COM);
    EXPECT_EQ(f.paramCount, 3);
    EXPECT_STREQ(f.returnVar.name, "resultValue");
    int keep = -7;
    EXPECT_EQ(ruvo_sdk::getRuvoInnerFuncInfo("inner", "absent", &f, demo, &keep), 0);
    EXPECT_EQ(keep, -7);

    EXPECT_EQ(ruvo_sdk::hasRuvoInnerFunc("inner", "wait_can_msg", FT_INNER, TFT_COM), 0);
    EXPECT_EQ(ruvo_sdk::hasRuvoInnerFunc("inner", "wait_can_msg", FT_INNER, TFT_GEN), -1);
    EXPECT_EQ(ruvo_sdk::hasRuvoInnerFunc("inner", "notify_process", FT_INNER, TFT_CB), -1);
    EXPECT_EQ(ruvo_sdk::hasRuvoInnerFunc("inner", "uds_change_parameter", FT_INNER, TFT_COM), -1);
    EXPECT_EQ(ruvo_sdk::hasRuvoInnerFunc("nobody", "init_can", FT_INNER, TFT_COM), -1);
}
