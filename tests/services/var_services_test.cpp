// The system variable services as a module calls them, through g_var, against the host store.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "host/HostBridge.h"
#include "services/service_tables.h"
#include "services/services.h"

namespace {

class VarServices : public ::testing::Test {
protected:
    void SetUp() override {
        variate_interface::ClearVariates();
        log_interface::setEcho(false);
        log_interface::takeRecords();
    }
    void TearDown() override {
        variate_interface::ClearVariates();
        log_interface::setEcho(true);
    }
    static std::vector<std::string> logged() {
        std::vector<std::string> out;
        for (const auto& r : log_interface::takeRecords()) out.push_back(r.text);
        return out;
    }
    static std::string line(const char* function, const char* message) {
        return std::string("[小程序]函数:") + function + ",错误:" + message;
    }
    static SystemVarDef stored(const char* gbkName) {
        SystemVarDef def;
        EXPECT_EQ(variate_interface::GetVariate(gbkName, def), VAR_OK) << gbkName;
        return def;
    }
};

TEST_F(VarServices, AddMakesTheRecordOfEachType) {
    struct Row {
        s32 (*add)(const char*, const char*);
        const char* name;
        int32_t category;
        uint8_t digits;
        const char* format;
        uint32_t arraySize;
        double min, max;
    };
    const Row rows[] = {
        {g_var.add_system_var_double, "t.double", SVC_DOUBLE, 3, "%.3lf", 1, -1.7976931348623157e308,
         1.7976931348623157e308},
        {g_var.add_system_var_int32, "t.int32", SVC_INT32, 0, "%d", 1, -2147483648.0, 2147483647.0},
        {g_var.add_system_var_uint32, "t.uint32", SVC_UINT32, 0, "%u", 1, 0.0, 4294967295.0},
        {g_var.add_system_var_int64, "t.int64", SVC_INT64, 0, "%lld", 1, -9.223372036854776e18,
         9.223372036854776e18},
        {g_var.add_system_var_uint64, "t.uint64", SVC_UINT64, 0, "%llu", 1, 0.0, 1.8446744073709552e19},
        {g_var.add_system_var_uint8_array, "t.u8a", SVC_UINT8_ARRAY, 0, "%u", 64, 0.0, 64.0},
        {g_var.add_system_var_int32_array, "t.i32a", SVC_INT32_ARRAY, 0, "%d", 64, 0.0, 64.0},
        {g_var.add_system_var_int64_array, "t.i64a", SVC_INT64_ARRAY, 0, "%lld", 64, 0.0, 64.0},
        {g_var.add_system_var_double_array, "t.da", SVC_DOUBLE_ARRAY, 0, "%.3lf", 64, 0.0, 64.0},
        {g_var.add_system_var_string, "t.str", SVC_STRING, 0, "%s", 1, 0.0, 255.0},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        ASSERT_EQ(r.add(r.name, "desc"), 0);
        const SystemVarDef def = stored(r.name);
        EXPECT_EQ(def.category, r.category);
        EXPECT_EQ(def.digits, r.digits);
        EXPECT_STREQ(def.format, r.format);
        EXPECT_EQ(def.arraySize, r.arraySize);
        EXPECT_EQ(def.min, r.min);
        EXPECT_EQ(def.max, r.max);
        EXPECT_STREQ(def.nameSpace, "t");
        EXPECT_STREQ(def.description, "desc");
        EXPECT_EQ(def.flags[0], 0);
        EXPECT_EQ(def.flags[1], 0);
        EXPECT_EQ(def.flags[2], 1);
        EXPECT_EQ(def.flags[3], 0);
        EXPECT_EQ(def.useCount, 1u);
        EXPECT_NE(def.createTime, 0u);
        EXPECT_EQ(def.count, 0);
    }
    EXPECT_TRUE(logged().empty());
}

TEST_F(VarServices, NamesSplitIntoNamespaceAndName) {
    ASSERT_EQ(g_var.add_system_var_int32("applet.var11", "x"), 0);
    EXPECT_STREQ(stored("applet.var11").name, "var11");
    ASSERT_EQ(g_var.add_system_var_int32("a.b.c", "x"), 0);  // further parts dropped
    const SystemVarDef b = stored("a.b");
    EXPECT_STREQ(b.nameSpace, "a");
    EXPECT_STREQ(b.name, "b");
    ASSERT_EQ(g_var.add_system_var_int32("plain", "x"), 0);
    EXPECT_STREQ(stored("plain").nameSpace, "");
    // The host refuses a blank record; the add reports the host's code.
    EXPECT_EQ(g_var.add_system_var_int32("", "x"), VAR_ERR_INVALID_NAME);
    EXPECT_EQ(g_var.add_system_var_int32(nullptr, nullptr), VAR_ERR_INVALID_NAME);
    EXPECT_EQ(g_var.add_system_var_int32("applet.var11", "x"), VAR_ERR_EXISTS);
    const auto lines = logged();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], line("addSystemVarInt32", "Failed to add system variable"));
}

TEST_F(VarServices, ChineseNamesReachTheStoreAsGbkByteForByte) {
    ASSERT_EQ(g_var.add_system_var_string("测试.速度", "车速"), 0);
    const std::vector<SystemVarDef> all = variate_interface::ListVariates();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(std::string(all[0].nameSpace), "\xB2\xE2\xCA\xD4");
    EXPECT_EQ(std::string(all[0].name), "\xCB\xD9\xB6\xC8");
    EXPECT_EQ(std::string(all[0].description), "\xB3\xB5\xCB\xD9");
    ASSERT_EQ(g_var.set_system_var_string("测试.速度", "快"), 0);  // the value is not converted
    char out[256];
    ASSERT_EQ(g_var.get_system_var_string("测试.速度", out), 0);
    EXPECT_STREQ(out, "快");
    EXPECT_EQ(g_var.delete_system_variant("测试.速度"), 0);
    EXPECT_TRUE(variate_interface::ListVariates().empty());
}

TEST_F(VarServices, InvalidUtf8NamesAreRefusedWithALogLine) {
    EXPECT_EQ(g_var.add_system_var_int32("bad\xFF", "x"), VAR_ERR_INVALID_NAME);
    auto lines = logged();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], line("addSystemVarInt32", "name is not valid UTF-8"));
    EXPECT_EQ(lines[1], line("addSystemVarInt32", "Failed to add system variable"));
    EXPECT_TRUE(variate_interface::ListVariates().empty());
    s32 v = 0;
    EXPECT_EQ(g_var.set_system_var_int32("bad\xFF", 1), -1);
    EXPECT_EQ(g_var.get_system_var_int32("bad\xFF", &v), -40);
    lines = logged();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[2], line("getSystemVarInt32", "name is not valid UTF-8"));
    EXPECT_EQ(lines[3], line("getSystemVarInt32", "Failed to get system variable"));
}

TEST_F(VarServices, DeleteReportsTheHostsCode) {
    ASSERT_EQ(g_var.add_system_var_double("d.x", ""), 0);
    EXPECT_EQ(g_var.delete_system_variant("d.x"), 0);
    EXPECT_EQ(g_var.delete_system_variant("d.x"), VAR_ERR_NOT_FOUND);
    EXPECT_EQ(g_var.delete_system_variant(std::string(300, 'n').c_str()), VAR_ERR_NAME_TOO_LONG);
    const auto lines = logged();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], line("delSystemVariant", "Failed to delete system variable"));
}

TEST_F(VarServices, ScalarsRoundTripAndKeepTheirTypeAndRange) {
    g_var.add_system_var_double("s.d", "");
    g_var.add_system_var_int32("s.i32", "");
    g_var.add_system_var_uint32("s.u32", "");
    g_var.add_system_var_int64("s.i64", "");
    g_var.add_system_var_uint64("s.u64", "");
    EXPECT_EQ(g_var.set_system_var_double("s.d", 12.25), 0);
    EXPECT_EQ(g_var.set_system_var_int32("s.i32", -2147483647 - 1), 0);
    EXPECT_EQ(g_var.set_system_var_uint32("s.u32", 4294967295u), 0);
    EXPECT_EQ(g_var.set_system_var_int64("s.i64", -1234567890123ll), 0);
    EXPECT_EQ(g_var.set_system_var_uint64("s.u64", 1ull << 63), 0);
    double d = 0;
    s32 i32 = 0;
    u32 u32v = 0;
    s64 i64 = 0;
    u64 u64v = 0;
    EXPECT_EQ(g_var.get_system_var_double("s.d", &d), 0);
    EXPECT_EQ(g_var.get_system_var_int32("s.i32", &i32), 0);
    EXPECT_EQ(g_var.get_system_var_uint32("s.u32", &u32v), 0);
    EXPECT_EQ(g_var.get_system_var_int64("s.i64", &i64), 0);
    EXPECT_EQ(g_var.get_system_var_uint64("s.u64", &u64v), 0);
    EXPECT_EQ(d, 12.25);
    EXPECT_EQ(i32, -2147483647 - 1);
    EXPECT_EQ(u32v, 4294967295u);
    EXPECT_EQ(i64, -1234567890123ll);
    EXPECT_EQ(u64v, 1ull << 63);
    EXPECT_EQ(services::getSystemConstInt64("s.i64", &i64), 0);
    EXPECT_TRUE(logged().empty());

    // No conversion between categories.
    EXPECT_EQ(g_var.set_system_var_int32("s.u32", 5), -1);
    EXPECT_EQ(logged(), std::vector<std::string>{line("setSystemVarInt32", "Failed to update system variable")});
    // The range is checked first, under the common name.
    EXPECT_EQ(g_var.set_system_var_int64("s.u64", -1), -1);
    EXPECT_EQ(g_var.set_system_var_double("s.u32", 5e9), -1);
    EXPECT_EQ(logged(), std::vector<std::string>(2, line("setSystemVar", "setSystemVariant beyond of range")));
    // A missing variable is reported by the fetch alone.
    EXPECT_EQ(g_var.set_system_var_double("s.none", 1.0), -1);
    EXPECT_EQ(logged(), std::vector<std::string>{line("setSystemVarDouble", "Failed to get system variable")});
    EXPECT_EQ(g_var.get_system_var_double("s.none", &d), -40);
    EXPECT_EQ(logged(), std::vector<std::string>{line("getSystemVarDouble", "Failed to get system variable")});
    EXPECT_EQ(g_var.get_system_var_double("s.d", nullptr), -40);

    // A reader of the wrong type gets the bytes of the value.
    EXPECT_EQ(g_var.get_system_var_uint64("s.d", &u64v), 0);
    u64 bits;
    const double expected = 12.25;
    std::memcpy(&bits, &expected, sizeof bits);
    EXPECT_EQ(u64v, bits);
}

TEST_F(VarServices, ArraysCopyUpToTheCapacity) {
    g_var.add_system_var_int32_array("a.i", "");
    std::vector<s32> hundred(100);
    for (int i = 0; i < 100; ++i) hundred[static_cast<size_t>(i)] = i + 1;
    EXPECT_EQ(g_var.set_system_var_int32_array("a.i", 100, hundred.data()), 0);
    EXPECT_EQ(stored("a.i").count, 64);
    EXPECT_EQ(stored("a.i").value.i32Array[63], 64);
    const s32 three[3] = {-1, -2, -3};
    EXPECT_EQ(g_var.set_system_var_int32_array("a.i", 3, three), 0);
    EXPECT_EQ(stored("a.i").count, 3);

    // The capacity is handed out, not the current count.
    s32 out[64] = {};
    s32 size = 64;
    EXPECT_EQ(g_var.get_system_var_int32_array("a.i", &size, out), 0);
    EXPECT_EQ(size, 64);
    EXPECT_EQ(out[2], -3);
    EXPECT_EQ(out[3], 4);  // left from the longer write
    size = 2;
    EXPECT_EQ(g_var.get_system_var_int32_array("a.i", &size, out), 0);
    EXPECT_EQ(size, 2);
    size = 1000;
    EXPECT_EQ(g_var.get_system_var_int32_array("a.i", &size, nullptr), 0);  // size only
    EXPECT_EQ(size, 64);
    size = -5;
    EXPECT_EQ(g_var.get_system_var_int32_array("a.i", &size, out), 0);
    EXPECT_EQ(size, -5);

    g_var.add_system_var_uint8_array("a.u8", "");
    g_var.add_system_var_int64_array("a.i64", "");
    g_var.add_system_var_double_array("a.d", "");
    const u8 bytes[2] = {0xAB, 0xCD};
    const s64 longs[2] = {-1, 1ll << 40};
    const double doubles[2] = {1.5, -2.5};
    EXPECT_EQ(g_var.set_system_var_uint8_array("a.u8", 2, bytes), 0);
    EXPECT_EQ(g_var.set_system_var_int64_array("a.i64", 2, longs), 0);
    EXPECT_EQ(g_var.set_system_var_double_array("a.d", 2, doubles), 0);
    u8 b[64];
    s64 l[64];
    double dd[64];
    size = 2;
    EXPECT_EQ(g_var.get_system_var_uint8_array("a.u8", &size, b), 0);
    EXPECT_EQ(b[1], 0xCD);
    size = 2;
    EXPECT_EQ(g_var.get_system_var_int64_array("a.i64", &size, l), 0);
    EXPECT_EQ(l[1], 1ll << 40);
    size = 2;
    EXPECT_EQ(g_var.get_system_var_double_array("a.d", &size, dd), 0);
    EXPECT_EQ(dd[1], -2.5);
    EXPECT_TRUE(logged().empty());

    // A wrong category or an unknown name fails the fetch; so does a null array with a size.
    EXPECT_EQ(g_var.set_system_var_double_array("a.i", 2, doubles), -1);
    EXPECT_EQ(g_var.set_system_var_double_array("a.none", 2, doubles), -1);
    EXPECT_EQ(logged(), std::vector<std::string>(2, line("setSystemVarDoubleArray", "Failed to get system variable")));
    EXPECT_EQ(g_var.set_system_var_uint8_array("a.u8", 5, nullptr), -1);
    EXPECT_EQ(g_var.get_system_var_uint8_array("a.none", &size, b), -40);
    EXPECT_EQ(g_var.get_system_var_uint8_array("a.u8", nullptr, b), -40);
}

TEST_F(VarServices, StringsHold255Bytes) {
    g_var.add_system_var_string("s.s", "");
    const std::string long300(300, 'z');
    EXPECT_EQ(g_var.set_system_var_string("s.s", long300.c_str()), 0);
    char out[300];
    std::memset(out, 'q', sizeof out);
    EXPECT_EQ(g_var.get_system_var_string("s.s", out), 0);
    EXPECT_EQ(std::strlen(out), 255u);
    EXPECT_EQ(out[256], 'q');  // nothing written past the 256 bytes
    EXPECT_EQ(g_var.set_system_var_string("s.s", nullptr), -1);
    g_var.add_system_var_int32("s.i", "");
    EXPECT_EQ(g_var.set_system_var_string("s.i", "x"), -1);
    EXPECT_EQ(g_var.get_system_var_string("s.none", out), -40);
    logged();

    // Bytes into a string variable: its capacity after add is 1, so nothing but the terminator.
    const u8 bytes[3] = {'a', 'b', 'c'};
    EXPECT_EQ(g_var.set_system_var_uint8_array("s.s", 3, bytes), 0);
    EXPECT_EQ(g_var.get_system_var_string("s.s", out), 0);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(stored("s.s").count, 0);
    EXPECT_TRUE(logged().empty());
}

}  // namespace

namespace {

// Writers and readers on several threads through the table: each read is one whole write.
TEST_F(VarServices, ConcurrentCallersSeeWholeArrays) {
    ASSERT_EQ(g_var.add_system_var_int64_array("c.arr", ""), 0);
    ASSERT_EQ(g_var.add_system_var_string("c.描述", "无效\xFF"), 0);  // a bad description is dropped
    EXPECT_EQ(logged(), std::vector<std::string>{line("addSystemVarString", "description is not valid UTF-8")});
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            s64 values[64];
            for (int i = 0; i < 5000; ++i) {
                if (t < 2) {
                    for (s64& v : values) v = t * 100000 + i;
                    if (g_var.set_system_var_int64_array("c.arr", 64, values) != 0) ++torn;
                } else {
                    s32 size = 64;
                    if (g_var.get_system_var_int64_array("c.arr", &size, values) != 0 || size != 64) ++torn;
                    for (const s64 v : values) {
                        if (v != values[0]) ++torn;
                    }
                }
            }
        });
    }
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(torn.load(), 0);
}

}  // namespace
