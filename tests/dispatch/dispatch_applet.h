#pragma once
// The handler module loaded as an applet with receive bindings on 0x123 (keys "12" and "123")
// and on any id, a send and two pre-send bindings on 0x7E8, and start and stop handlers; the
// calls it records are read back through its own functions.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"

class DispatchFixture : public ::testing::Test {
protected:
    void SetUp() override {
        ruvo_sdk::initRuvo("/tmp");
        MpRuvo* a = RuvoManager::getInstance().createApplet("dispatchfix", AT_TOOL);
        a->setExportPath(DISPATCH_FIXTURE_DIR);
        for (const char* key : {"12", "123"}) a->insertRecvCANId(key, 0x123);
        a->insertRecvCANId("any", 0xFFFFFFFF);
        a->insertSendCANId("out", 0x7E8);
        a->insertPreSendCANId("first", 0x7E8);
        a->insertPreSendCANId("second", 0x7E8);
        a->addMpFunction(a->createFunc("on_start_go", RFT_PROGRAM_START, {}));
        a->addMpFunction(a->createFunc("on_stop_go", RFT_PROGRAM_STOP, {}));
        ASSERT_EQ(ruvo_sdk::loadRuvoMp("dispatchfix"), 0) << a->moduleError();
        count = reinterpret_cast<int (*)()>(a->getDllFuncAddress("fixture_call_count"));
        call = reinterpret_cast<const char* (*)(int)>(a->getDllFuncAddress("fixture_call"));
        callId = reinterpret_cast<unsigned (*)(int)>(a->getDllFuncAddress("fixture_call_id"));
        reinterpret_cast<void (*)()>(a->getDllFuncAddress("fixture_reset"))();
    }
    void TearDown() override {
        hostbridge::setDevicesPresent(true);
        ruvo_sdk::kelnStop();
        ruvo_sdk::unloadRuvoMp("dispatchfix");
        ruvo_sdk::destroyRuvo("dispatchfix");
    }
    std::vector<std::string> calls() {
        std::vector<std::string> out;
        for (int i = 0; i < count(); ++i) out.push_back(call(i));
        return out;
    }
    static std::shared_ptr<MsgHeaderBase> frame(uint32_t id, std::vector<unsigned char> data = {1, 2, 3}) {
        return hostbridge::makeCanFrame(1000, 0, id, false, false, false, data.data(),
                                        static_cast<int>(data.size()));
    }
    int (*count)() = nullptr;
    const char* (*call)(int) = nullptr;
    unsigned (*callId)(int) = nullptr;
};
