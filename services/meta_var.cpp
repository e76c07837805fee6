// Editor metadata of the system variable services (var): ten add, one delete, ten set and ten
// get services, one of each per type, in the order of their table.
#include "services/service_meta.h"

namespace services::meta {

namespace {

struct Kind {
    const char* suffix;    // of the service names
    const char* typeName;  // as getDataCategoryType names it
    // set: a scalar value, or an array (size and pointer), or a string
    std::vector<ServiceParam> setParams;
    std::vector<ServiceParam> getParams;
    const char* setDemo;
    const char* getDemo;
};

ServiceParam value(KelnVarType t) { return {"setValue", t, "变量修改值"}; }
ServiceParam valuePtr(KelnVarType t) { return {"strValue", t, "获取变量值的指针"}; }
std::vector<ServiceParam> setArray(KelnVarType t) {
    return {{"arraySize", KVT_U32, "修改数组大小"}, {"arrayPtr", t, "修改数组指针"}};
}
std::vector<ServiceParam> getArray(KelnVarType t) {
    return {{"arraySize", KVT_PS32, "获取数组大小的指针(输入值为数组最大长度)"},
            {"arrayPtr", t, "获取的数组指针"}};
}

#define RUVO_SET_DEMO(value) "if (0 == var.%s(\"applet.var11\"," value "))\n{\n\tclog.info(\"%s\");\n}"
#define RUVO_GET_DEMO(decl, fmt) \
    decl " vv = 0;\nif (0 == var.%s(\"applet.var11\", &vv))\n{\n\tclog.info(\"%s:%%" fmt "\", vv);\n}"
#define RUVO_SET_ARRAY_DEMO(decl, values) \
    decl " arr[3] = { " values " };\nif (0 == var.%s(\"applet.var11\", 3, arr))\n{\n\tclog.info(\"%s\");\n}"
#define RUVO_GET_ARRAY_DEMO(decl)                                                           \
    decl " arr[64] = { 0 };\ns32 size = 64;\nif (0 == var.%s(\"applet.var11\", &size, arr))" \
         "\n{\n\tclog.info(\"%s:%%d\", size);\n}"

const std::vector<Kind>& kinds() {
    static const std::vector<Kind> k = {
        {"double", "double", {value(KVT_DOUBLE)}, {valuePtr(KVT_PDOUBLE)}, RUVO_SET_DEMO("12.2"),
         RUVO_GET_DEMO("double", "lf")},
        {"int32", "int32", {value(KVT_S32)}, {valuePtr(KVT_PS32)}, RUVO_SET_DEMO("12"), RUVO_GET_DEMO("s32", "d")},
        {"uint32", "uint32", {value(KVT_U32)}, {valuePtr(KVT_PU32)}, RUVO_SET_DEMO("12"), RUVO_GET_DEMO("u32", "u")},
        {"int64", "int64", {value(KVT_S64)}, {valuePtr(KVT_PS64)}, RUVO_SET_DEMO("12"),
         RUVO_GET_DEMO("s64", "lld")},
        {"uint64", "uint64", {value(KVT_U64)}, {valuePtr(KVT_PU64)}, RUVO_SET_DEMO("12"),
         RUVO_GET_DEMO("u64", "llu")},
        {"uint8_array", "uint8Array", setArray(KVT_PU8), getArray(KVT_PU8), RUVO_SET_ARRAY_DEMO("u8", "1, 2, 3"),
         RUVO_GET_ARRAY_DEMO("u8")},
        {"int32_array", "int32Array", setArray(KVT_PS32), getArray(KVT_PS32),
         RUVO_SET_ARRAY_DEMO("s32", "1, 2, 3"), RUVO_GET_ARRAY_DEMO("s32")},
        {"int64_array", "int64Array", setArray(KVT_PS64), getArray(KVT_PS64),
         RUVO_SET_ARRAY_DEMO("s64", "1, 2, 3"), RUVO_GET_ARRAY_DEMO("s64")},
        {"double_array", "doubleArray", setArray(KVT_PDOUBLE), getArray(KVT_PDOUBLE),
         RUVO_SET_ARRAY_DEMO("double", "1.1, 2.2, 3.3"), RUVO_GET_ARRAY_DEMO("double")},
        {"string", "string", {{"string", KVT_PCHAR, "修改字符串"}}, {{"string", KVT_PCHAR, "获取的字符串指针"}},
         RUVO_SET_DEMO("\"abc\""),
         "char str[256] = { 0 };\nif (0 == var.%s(\"applet.var11\", str))\n{\n\tclog.info(\"%s:%%s\", str);\n}"},
    };
    return k;
}

#undef RUVO_GET_ARRAY_DEMO
#undef RUVO_SET_ARRAY_DEMO
#undef RUVO_GET_DEMO
#undef RUVO_SET_DEMO

const char* const kAddDemo = "if (0 == var.%s(\"applet.var11\", \"%s\"))\n{\n\tclog.info(\"%s\");\n}";
const char* const kDeleteDemo = "if (0 == var.%s(\"applet.var11\"))\n{\n\tclog.info(\"%s\");\n}";

std::vector<ServiceParam> with(const ServiceParam& first, const std::vector<ServiceParam>& rest) {
    std::vector<ServiceParam> out{first};
    out.insert(out.end(), rest.begin(), rest.end());
    return out;
}

}  // namespace

const std::vector<ServiceMeta>& var() {
    static const std::vector<ServiceMeta> table = [] {
        const ServiceParam name{"VarName", KVT_STRING, "变量名称"};
        std::vector<ServiceMeta> t;
        // The success text of a demo is the service's name.
        for (const Kind& k : kinds()) {
            const std::string n = std::string("add_system_var_") + k.suffix;
            const std::string d = std::string("添加") + k.typeName + "类型的系统变量";
            t.push_back({n, d, {name, {"varDescription", KVT_STRING, "变量描述"}},
                         printDemo(kDemoBound, kAddDemo, n.c_str(), d.c_str(), n.c_str())});
        }
        t.push_back({"delete_system_variant", "删除任意类型的系统变量", {name},
                     printDemo(kDemoBound, kDeleteDemo, "delete_system_variant", "delete_system_variant")});
        for (const Kind& k : kinds()) {
            const std::string n = std::string("set_system_var_") + k.suffix;
            const std::string d = std::string("设置") + k.typeName + "类型的系统变量值";
            t.push_back({n, d, with(name, k.setParams), printDemo(kDemoBound, k.setDemo, n.c_str(), n.c_str())});
        }
        for (const Kind& k : kinds()) {
            const std::string n = std::string("get_system_var_") + k.suffix;
            const std::string d = std::string("获取") + k.typeName + "类型的系统变量值";
            t.push_back({n, d, with(name, k.getParams), printDemo(kDemoBound, k.getDemo, n.c_str(), n.c_str())});
        }
        return t;
    }();
    return table;
}

}  // namespace services::meta
