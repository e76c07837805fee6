// The workstation's system variable store: records, errors, GBK names, listeners, contention.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "host/vars/system_variate.h"

using hostbridge::VariableChange;
using hostbridge::VariableEvent;
using hostbridge::VariateStore;

namespace {

SystemVarDef makeVar(int32_t category, const char* ns, const char* name) {
    SystemVarDef def(category);
    std::strncpy(def.nameSpace, ns, sizeof def.nameSpace - 1);
    std::strncpy(def.name, name, sizeof def.name - 1);
    if (category == SVC_STRING) def.arraySize = 1;
    return def;
}

TEST(SystemVarDef, ConstructorSetsTheRangeOfItsCategory) {
    struct Row {
        int32_t category;
        double min, max;
        uint32_t arraySize;
    };
    const Row rows[] = {
        {SVC_INT32, -2147483648.0, 2147483647.0, 0},
        {SVC_UINT32, 0.0, 4294967295.0, 0},
        {SVC_INT64, -9.223372036854776e18, 9.223372036854776e18, 0},
        {SVC_UINT64, 0.0, 1.8446744073709552e19, 0},
        {SVC_DOUBLE, -1.7976931348623157e308, 1.7976931348623157e308, 0},
        {SVC_STRING, 0.0, 255.0, 255},
        {SVC_UINT8_ARRAY, 0.0, 64.0, 64},
        {SVC_INT32_ARRAY, 0.0, 64.0, 64},
        {SVC_INT64_ARRAY, 0.0, 64.0, 64},
        {SVC_DOUBLE_ARRAY, 0.0, 64.0, 64},
    };
    for (const Row& r : rows) {
        const SystemVarDef def(r.category);
        EXPECT_EQ(def.category, r.category);
        EXPECT_EQ(def.min, r.min) << r.category;
        EXPECT_EQ(def.max, r.max) << r.category;
        EXPECT_EQ(def.arraySize, r.arraySize) << r.category;
    }
    const SystemVarDef other(42);  // sets nothing but the category
    EXPECT_EQ(other.min, 0.0);
    EXPECT_EQ(other.max, 0.0);
    EXPECT_EQ(other.arraySize, 0u);
    EXPECT_STREQ(systemVarCategoryName(0), "no_type");
    EXPECT_STREQ(systemVarCategoryName(7), "uint8Array");
    EXPECT_STREQ(systemVarCategoryName(10), "doubleArray");
    EXPECT_STREQ(systemVarCategoryName(11), "unknown_type");
    EXPECT_STREQ(systemVarCategoryName(-1), "unknown_type");
}

TEST(VariateStore, EveryCategoryKeepsItsValue) {
    VariateStore store;
    for (int32_t c = SVC_INT32; c <= SVC_DOUBLE_ARRAY; ++c) {
        const std::string name = std::string("v") + systemVarCategoryName(c);
        ASSERT_EQ(store.create(makeVar(c, "ns", name.c_str())), VAR_OK) << c;
    }
    SystemVarDef def;
    ASSERT_EQ(store.get("ns.vint32", def), VAR_OK);
    def.value.i32 = -7;
    EXPECT_EQ(store.update(def, 0), VAR_OK);
    ASSERT_EQ(store.get("ns.vuint64", def), VAR_OK);
    def.value.u64 = 18000000000000000000ull;
    EXPECT_EQ(store.update(def, 0), VAR_OK);
    ASSERT_EQ(store.get("ns.vdouble", def), VAR_OK);
    def.value.d = 2.5;
    EXPECT_EQ(store.update(def, 0), VAR_OK);
    ASSERT_EQ(store.get("ns.vstring", def), VAR_OK);
    std::memset(def.value.str, 'x', sizeof def.value.str);  // unterminated: the store terminates
    EXPECT_EQ(store.update(def, 0), VAR_OK);
    ASSERT_EQ(store.get("ns.vint64Array", def), VAR_OK);
    for (int i = 0; i < 3; ++i) def.value.i64Array[i] = -i - 1;
    def.count = 3;
    EXPECT_EQ(store.update(def, 0), VAR_OK);

    ASSERT_EQ(store.get("ns.vint32", def), VAR_OK);
    EXPECT_EQ(def.value.i32, -7);
    ASSERT_EQ(store.get("ns.vuint64", def), VAR_OK);
    EXPECT_EQ(def.value.u64, 18000000000000000000ull);
    ASSERT_EQ(store.get("ns.vdouble", def), VAR_OK);
    EXPECT_EQ(def.value.d, 2.5);
    ASSERT_EQ(store.get("ns.vstring", def), VAR_OK);
    EXPECT_EQ(std::strlen(def.value.str), 255u);
    ASSERT_EQ(store.get("ns.vint64Array", def), VAR_OK);
    EXPECT_EQ(def.count, 3);
    EXPECT_EQ(def.value.i64Array[2], -3);

    const std::vector<SystemVarDef> all = store.list();
    ASSERT_EQ(all.size(), 10u);
    EXPECT_EQ(systemVarFullName(all.front()), "ns.vdouble");  // ordered by name
}

TEST(VariateStore, ErrorsAreCodesNeverCrashes) {
    VariateStore store;
    ASSERT_EQ(store.create(makeVar(SVC_UINT32, "a", "u")), VAR_OK);
    EXPECT_EQ(store.create(makeVar(SVC_UINT32, "a", "u")), VAR_ERR_EXISTS);
    EXPECT_EQ(store.create(makeVar(SVC_UINT32, "b", "u")), VAR_OK);  // other namespace
    EXPECT_EQ(store.create(makeVar(SVC_INT32, "", "")), VAR_ERR_INVALID_NAME);
    EXPECT_EQ(store.create(makeVar(0, "a", "none")), VAR_ERR_INVALID_TYPE);
    EXPECT_EQ(store.create(makeVar(11, "a", "none")), VAR_ERR_INVALID_TYPE);
    EXPECT_EQ(store.create(makeVar(SVC_INT32, "a", "\xD6")), VAR_ERR_INVALID_NAME);  // half a GBK character
    SystemVarDef unterminated = makeVar(SVC_INT32, "a", "x");
    std::memset(unterminated.name, 'n', sizeof unterminated.name);
    EXPECT_EQ(store.create(unterminated), VAR_ERR_NAME_TOO_LONG);
    SystemVarDef bigArray = makeVar(SVC_UINT8_ARRAY, "a", "arr");
    bigArray.arraySize = 65;
    EXPECT_EQ(store.create(bigArray), VAR_ERR_ARRAY_SIZE);

    SystemVarDef def;
    EXPECT_EQ(store.get("a.missing", def), VAR_ERR_NOT_FOUND);
    EXPECT_EQ(store.get(nullptr, def), VAR_ERR_INVALID_NAME);
    EXPECT_EQ(store.get("a.", def), VAR_ERR_INVALID_NAME);
    EXPECT_EQ(store.get(std::string(256, 'n').c_str(), def), VAR_ERR_NAME_TOO_LONG);
    EXPECT_EQ(store.get(std::string(255, 'n').c_str(), def), VAR_ERR_NOT_FOUND);
    EXPECT_EQ(store.remove("a.missing"), VAR_ERR_NOT_FOUND);

    ASSERT_EQ(store.get("a.u", def), VAR_OK);
    def.value.i32 = -1;  // read as uint32: 4294967295 is in range
    EXPECT_EQ(store.update(def, 0), VAR_OK);
    def.category = SVC_INT32;
    EXPECT_EQ(store.update(def, 0), VAR_ERR_TYPE_MISMATCH);

    SystemVarDef narrow = makeVar(SVC_DOUBLE, "a", "narrow");
    narrow.min = -1.0;
    narrow.max = 1.0;
    ASSERT_EQ(store.create(narrow), VAR_OK);
    narrow.value.d = 1.5;
    EXPECT_EQ(store.update(narrow, 0), VAR_ERR_OUT_OF_RANGE);
    narrow.value.d = 0.0 / 0.0;
    EXPECT_EQ(store.update(narrow, 0), VAR_ERR_OUT_OF_RANGE);
    narrow.value.d = 1.0;
    EXPECT_EQ(store.update(narrow, 0), VAR_OK);

    SystemVarDef arr = makeVar(SVC_INT32_ARRAY, "a", "arr");
    arr.arraySize = 4;
    ASSERT_EQ(store.create(arr), VAR_OK);
    arr.count = 5;
    EXPECT_EQ(store.update(arr, 0), VAR_ERR_ARRAY_SIZE);
    SystemVarDef ghost = makeVar(SVC_INT32, "a", "ghost");
    EXPECT_EQ(store.update(ghost, 0), VAR_ERR_NOT_FOUND);

    EXPECT_EQ(store.remove("a.u"), VAR_OK);
    EXPECT_EQ(store.get("a.u", def), VAR_ERR_NOT_FOUND);
    EXPECT_EQ(store.get("b.u", def), VAR_OK);
}

TEST(VariateStore, NamesAreGbkAndSplitOnTheFirstTwoParts) {
    VariateStore store;
    // "测试.速度" in GBK
    const std::string ns = "\xB2\xE2\xCA\xD4";
    const std::string name = "\xCB\xD9\xB6\xC8";
    ASSERT_EQ(store.create(makeVar(SVC_INT64, ns.c_str(), name.c_str())), VAR_OK);
    SystemVarDef def;
    ASSERT_EQ(store.get((ns + "." + name).c_str(), def), VAR_OK);
    EXPECT_EQ(std::string(def.name), name);
    EXPECT_EQ(std::string(def.nameSpace), ns);
    EXPECT_EQ(store.get((ns + "." + name + ".extra").c_str(), def), VAR_OK);
    EXPECT_EQ(store.get(name.c_str(), def), VAR_ERR_NOT_FOUND);  // no namespace is another variable
    EXPECT_NE(def.createTime, 0u);
}

TEST(VariateStore, ListenersSeeEveryChangeAndMayUseTheStore) {
    VariateStore store;
    std::vector<VariableEvent> seen;
    const int id = store.addListener([&](const VariableEvent& e) {
        SystemVarDef now;
        store.get(systemVarFullName(e.def).c_str(), now);  // no deadlock
        seen.push_back(e);
    });
    SystemVarDef def = makeVar(SVC_INT32, "ns", "v");
    ASSERT_EQ(store.create(def), VAR_OK);
    def.value.i32 = 9;
    ASSERT_EQ(store.update(def, 1234), VAR_OK);
    def.category = SVC_UINT32;
    EXPECT_NE(store.update(def, 0), VAR_OK);  // a failed change is not reported
    ASSERT_EQ(store.remove("ns.v"), VAR_OK);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0].change, VariableChange::Added);
    EXPECT_EQ(seen[1].change, VariableChange::Updated);
    EXPECT_EQ(seen[1].def.value.i32, 9);
    EXPECT_EQ(seen[1].time, 1234u);
    EXPECT_EQ(seen[2].change, VariableChange::Deleted);
    store.removeListener(id);
    ASSERT_EQ(store.create(def), VAR_OK);
    EXPECT_EQ(seen.size(), 3u);
}

TEST(VariateInterface, SharedStoreAndItsListener) {
    variate_interface::ClearVariates();
    int added = 0;
    const int id = hostbridge::addVariableListener([&](const VariableEvent& e) {
        if (e.change == VariableChange::Added) ++added;
    });
    SystemVarDef def = makeVar(SVC_DOUBLE, "app", "d");
    EXPECT_EQ(variate_interface::CreateVariate(def), VAR_OK);
    SystemVarDef got;
    EXPECT_EQ(variate_interface::GetVariate("app.d", got), VAR_OK);
    got.value.d = 3.25;
    EXPECT_EQ(variate_interface::UpdateVariate(got, 0), VAR_OK);
    ASSERT_EQ(variate_interface::ListVariates().size(), 1u);
    EXPECT_EQ(variate_interface::ListVariates()[0].value.d, 3.25);
    EXPECT_EQ(variate_interface::DeleteVariate("app.d"), VAR_OK);
    EXPECT_EQ(added, 1);
    hostbridge::removeVariableListener(id);
    variate_interface::ClearVariates();
}

// Four threads write and read whole arrays; every element of a read must come from one write.
TEST(VariateStore, ConcurrentWritersAndReadersNeverSeeTornValues) {
    VariateStore store;
    SystemVarDef arr = makeVar(SVC_INT64_ARRAY, "c", "arr");
    ASSERT_EQ(store.create(arr), VAR_OK);
    SystemVarDef word = makeVar(SVC_UINT64, "c", "word");
    ASSERT_EQ(store.create(word), VAR_OK);
    constexpr int kIterations = 100000;
    std::atomic<int> torn{0};
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            SystemVarDef w = arr;
            SystemVarDef s = word;
            SystemVarDef r;
            for (int i = 0; i < kIterations; ++i) {
                const int64_t stamp = static_cast<int64_t>(t) << 32 | i;
                if ((i & 1) == 0) {
                    w.count = static_cast<uint8_t>(1 + (i % 64));
                    for (int k = 0; k < 64; ++k) w.value.i64Array[k] = stamp;
                    if (store.update(w, 0) != VAR_OK) ++failed;
                    // High word the complement of the low: a torn read breaks the pair.
                    s.value.u64 = static_cast<uint64_t>(~static_cast<uint32_t>(i)) << 32 | static_cast<uint32_t>(i);
                    if (store.update(s, 0) != VAR_OK) ++failed;
                } else {
                    if (store.get("c.arr", r) != VAR_OK) ++failed;
                    for (int k = 1; k < 64; ++k) {
                        if (r.value.i64Array[k] != r.value.i64Array[0]) ++torn;
                    }
                    if (r.count != 0 && r.count != 1 + ((r.value.i64Array[0] & 0xFFFFFFFF) % 64)) ++torn;
                    if (store.get("c.word", r) != VAR_OK) ++failed;
                    const uint32_t low = static_cast<uint32_t>(r.value.u64);
                    const uint32_t high = static_cast<uint32_t>(r.value.u64 >> 32);
                    if (r.value.u64 != 0 && high != static_cast<uint32_t>(~low)) ++torn;
                }
            }
        });
    }
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(failed.load(), 0);
    EXPECT_EQ(torn.load(), 0);
}

}  // namespace
