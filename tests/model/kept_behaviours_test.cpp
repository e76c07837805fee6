// Odd behaviours of the plain records and the model that hosts and compiled applets rely on.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <new>

#include "model/MpRuvo.h"
#include "model/Parameter.h"

namespace {

void* g_readArgument = nullptr;
int g_commits = 0;
int g_writes = 0;

double readDouble(void* handle) {
    g_readArgument = handle;
    return 2.5;
}
int readInt(_KelnVarInt* handle) {
    g_readArgument = handle;
    return 7;
}
void commitAfterWrite() {
    EXPECT_EQ(g_writes, g_commits + 1) << "the commit follows its write";
    ++g_commits;
}
void writeDouble(_KelnVarDouble*, double) { ++g_writes; }

}  // namespace

TEST(KeptRecords, DoubleHandleReadGetsTheCommitWordWhereTheIntHandleGetsItself) {
    _KelnVarDouble d{};
    d.commit = &commitAfterWrite;
    d.read = &readDouble;
    EXPECT_EQ(d.get(), 2.5);
    EXPECT_EQ(g_readArgument, reinterpret_cast<void*>(&commitAfterWrite));

    _KelnVarInt i{};
    i.read = &readInt;
    EXPECT_EQ(i.get(), 7);
    EXPECT_EQ(g_readArgument, static_cast<void*>(&i));
}

TEST(KeptRecords, DoubleHandleSetWritesThenCommits) {
    g_commits = g_writes = 0;
    _KelnVarDouble d{};
    d.commit = &commitAfterWrite;
    d.write = &writeDouble;
    d.set(1.0);
    EXPECT_EQ(g_writes, 1);
    EXPECT_EQ(g_commits, 1);
}

TEST(KeptRecords, DiagnoseIdFieldKeepsItsMisspeltNameFirst) {
    // Applet code is written against this spelling.
    keln_uds_ecu_diagnose_id id{};
    id.PyhReqID = 0x722;
    EXPECT_EQ(offsetof(keln_uds_ecu_diagnose_id, PyhReqID), 0u);
    EXPECT_EQ(id.PyhReqID, 0x722u);
}

TEST(KeptRecords, DoCanConstructorZeroesUpToTheAddressExtensionAndLeavesTransportSettingsAlone) {
    alignas(_KelnDoCan) unsigned char storage[sizeof(_KelnDoCan)];
    std::memset(storage, 0xA5, sizeof(storage));
    // Keeps the optimiser from dropping the fill as a store to an object not yet alive.
    asm volatile("" : : "r"(storage) : "memory");
    _KelnDoCan* docan = new (storage) _KelnDoCan;
    EXPECT_EQ(docan->physical_address, 0u);
    EXPECT_EQ(docan->N_AE, 0);
    const unsigned char* items = storage + offsetof(_KelnDoCan, can_items);
    for (size_t k = 0; k < sizeof(KelnCANBusCommItems); ++k) {
        ASSERT_EQ(items[k], 0xA5) << "transport settings byte " << k << " was touched";
    }
    docan->~_KelnDoCan();
}

TEST(KeptParameter, MemberValueTextHasTheSameGapAsTheFreeFunction) {
    const Parameter p;
    EXPECT_EQ(p.getValueToString(static_cast<KelnVarType>(176)), "Unknown");
    EXPECT_EQ(p.getValueToString(static_cast<KelnVarType>(177)), "XcpProgramFormat*");
    EXPECT_EQ(p.getValueToString(static_cast<KelnVarType>(20)), "timer");
}

TEST(KeptApplet, SetEditTypeAnswersZeroForAnyValue) {
    MpRuvo a;
    EXPECT_EQ(a.setEditType(static_cast<_RuvoEditType>(9)), 0);
    EXPECT_EQ(a.getEditType(), static_cast<_RuvoEditType>(9));
}
