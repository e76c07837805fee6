#include <gtest/gtest.h>

#include "model/MpRuvo.h"

namespace {
std::unique_ptr<MpRuvo> applet() {
    auto a = std::make_unique<MpRuvo>();
    a->setType(AT_TOOL);
    a->setMpName("b");
    return a;
}
}  // namespace

TEST(CanBindings, InsertMakesTheFunctionWithHexAdditions) {
    auto a = applet();
    EXPECT_EQ(a->insertRecvCANId("req", 0x7E0), 0);
    ASSERT_TRUE(a->hasFunc("on_can_rx_req"));
    EXPECT_EQ(a->getAdditions("on_can_rx_req"), (std::vector<std::string>{"req", "7e0"}));
    EXPECT_EQ(a->insertSendCANId("s", 1), 0);
    EXPECT_EQ(a->findFunc("on_can_tx_s").getSubType(), RFT_CAN_SEND);
    EXPECT_EQ(a->insertPreSendCANId("p", 2), 0);
    EXPECT_EQ(a->findFunc("on_can_pretx_p").getSubType(), RFT_CAN_PRE_SEND);
}

TEST(CanBindings, InsertingAKeyTwiceReplacesTheBody) {
    auto a = applet();
    a->insertRecvCANId("req", 1);
    a->setFuncBodyCode("on_can_rx_req", "mine");
    a->insertRecvCANId("req", 2);
    EXPECT_EQ(a->getRecvCANId().size(), 1u);
    EXPECT_EQ(a->getRecvCANId().at("req"), 2u);
    EXPECT_EQ(a->findFunc("on_can_rx_req").getBodyCode(), "//To do something\n");
}

TEST(CanBindings, UpdateWithSameKeyKeepsBodyAndChangesAdditions) {
    auto a = applet();
    a->insertRecvCANId("req", 1);
    a->setFuncBodyCode("on_can_rx_req", "mine");
    EXPECT_EQ(a->updateRecvCANId("req", "req", 0xAB), 0);
    EXPECT_EQ(a->findFunc("on_can_rx_req").getBodyCode(), "mine");
    EXPECT_EQ(a->getAdditions("on_can_rx_req"), (std::vector<std::string>{"req", "ab"}));
    EXPECT_EQ(a->getRecvCANId().at("req"), 0xABu);
}

TEST(CanBindings, RenameRewritesForwardTextWithLiteralId) {
    auto a = applet();
    a->insertSendCANId("old", 5);
    a->setFuncBodyCode("on_can_tx_old", "mine");
    EXPECT_EQ(a->updateSendCANId("old", "new", 6), 0);
    EXPECT_FALSE(a->hasFunc("on_can_tx_old"));
    const RuvoFunction f = a->findFunc("on_can_tx_new");
    EXPECT_EQ(f.getForwardCode(), "void on_can_tx_new(const PKelnCan ACAN) { try { // 针对标识符 = 0x123");
    EXPECT_EQ(f.getBodyCode(), "mine");
    EXPECT_EQ(f.getAdditions(), (std::vector<std::string>{"new", "6"}));
    EXPECT_EQ(a->updateSendCANId("absent", "x", 1), -1);
}

TEST(CanBindings, RemoveByKeyLeavesTheFunctionButClearRemovesIt) {
    auto a = applet();
    a->insertRecvCANId("abc", 1);
    a->removeRecvCANId("abc");
    EXPECT_TRUE(a->getRecvCANId().empty());
    EXPECT_TRUE(a->hasFunc("on_can_rx_abc"));
    a->insertRecvCANId("abc", 1);
    a->insertRecvCANId("def", 2);
    a->clearRecvCANId();
    EXPECT_FALSE(a->hasFunc("on_can_rx_abc"));
    EXPECT_FALSE(a->hasFunc("on_can_rx_def"));
}

TEST(KeyboardBindings, PresentKeyKeepsItsPartsAndUpdateLosesTheBody) {
    auto a = applet();
    a->insertKeyboardEvent("F1", {"Ctrl", "F1"});
    EXPECT_EQ(a->getAdditions("on_shortcut_F1"), (std::vector<std::string>{"F1", "Ctrl+F1"}));
    a->insertKeyboardEvent("F1", {"Alt", "F1"});
    EXPECT_EQ(a->getKeyboardEvents().at("F1"), (std::list<std::string>{"Ctrl", "F1"}));
    a->setFuncBodyCode("on_shortcut_F1", "mine");
    EXPECT_EQ(a->updateKeyboardEvent("F1", "F2", {"Shift", "F2"}), 0);
    EXPECT_FALSE(a->hasFunc("on_shortcut_F1"));
    EXPECT_EQ(a->findFunc("on_shortcut_F2").getBodyCode(), "//To do something\n");
    EXPECT_EQ(a->getKeyboardEvents().at("F2"), (std::list<std::string>{"Shift", "F2"}));
    EXPECT_EQ(a->updateKeyboardEvent("F9", "F3", {}), -1);
    a->clearKeyboardEvent();
    EXPECT_TRUE(a->isEmptyKeyboardEvent());
    EXPECT_FALSE(a->hasFunc("on_shortcut_F2"));
}

TEST(TimerBindings, UpdateRenamesEntryEvenWithoutFunction) {
    auto a = applet();
    a->insertTimer("t", 10);
    EXPECT_FALSE(a->hasFunc("on_t_timer"));
    EXPECT_EQ(a->updateTimer("t", "u", 20), 0);
    EXPECT_EQ(a->getTimerInterval("u"), 20u);
    EXPECT_EQ(a->getTimers().count("t"), 0u);
    EXPECT_EQ(a->updateTimer("t", "v", 1), -1);
}

TEST(TimerBindings, UpdateMovesFunctionAndRewritesAdditions) {
    auto a = applet();
    a->insertTimer("t", 10);
    RuvoFunction f = a->createFunc("on_t_timer", RFT_TIMER, {"t", "10"});
    f.setBodyCode("tick();");
    a->addMpFunction(f);
    EXPECT_EQ(a->updateTimer("t", "u", 25), 0);
    const RuvoFunction moved = a->findFunc("on_u_timer");
    EXPECT_EQ(moved.getBodyCode(), "tick();");
    EXPECT_EQ(moved.getAdditions(), (std::vector<std::string>{"u", "25"}));
    EXPECT_EQ(moved.getForwardCode(), "// 定时器回调函数 ");
    a->clearTimers();
    EXPECT_TRUE(a->getTimers().empty());
    EXPECT_FALSE(a->hasFunc("on_u_timer"));
}

TEST(EventGroups, StartAndStopClearsTouchBeforeAndAfterEventsOnly) {
    auto a = applet();
    a->addMpFunction(a->createFunc("on_prev_x", RFT_PREV_EVENT, {}));
    a->addMpFunction(a->createFunc("on_post_x", RFT_POST_EVENT, {}));
    a->addMpFunction(a->createFunc("on_start_x", RFT_PROGRAM_START, {}));
    a->clearStartEvents();
    EXPECT_FALSE(a->hasFunc("on_prev_x"));
    EXPECT_TRUE(a->hasFunc("on_post_x"));
    a->clearStopEvents();
    EXPECT_FALSE(a->hasFunc("on_post_x"));
    EXPECT_TRUE(a->hasFunc("on_start_x"));
}
