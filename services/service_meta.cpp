#include "services/service_meta.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace services::meta {

std::string printDemo(size_t bound, const char* format, const char* a, const char* b, const char* c,
                      const char* d) {
    std::vector<char> buffer(bound);
    std::snprintf(buffer.data(), buffer.size(), format, a, b, c, d);
    return buffer.data();
}

const ServiceMeta& find(std::initializer_list<const std::vector<ServiceMeta>*> tables, const char* name) {
    for (const auto* table : tables) {
        for (const ServiceMeta& m : *table) {
            if (m.name == name) return m;
        }
    }
    std::fprintf(stderr, "service metadata: no entry for %s\n", name);
    std::abort();
}

}  // namespace services::meta

ServiceCatalogue::ServiceCatalogue(const char* p, int s, const char* returnName, KelnVarType returnType,
                                   const char* returnDesc)
    : prefix(p), subType(s) {
    returnParam.setName(returnName);
    returnParam.setType(returnType);
    returnParam.setDesc(returnDesc);
}

RuvoFunction& ServiceCatalogue::add(std::list<RuvoFunction>& list, const ServiceMeta& meta, void* address) {
    return add(list, meta.name, address, meta.demo, meta.desc, meta.params);
}

RuvoFunction& ServiceCatalogue::add(std::list<RuvoFunction>& list, const std::string& name, void* address,
                                    const std::string& demo, const std::string& desc,
                                    const std::vector<ServiceParam>& params) {
    RuvoFunction f;
    f.setType(FT_INNER);
    f.setSubType(subType);
    f.setPrefix(prefix);
    f.setName(name);
    f.setAddr(address);
    f.setDesc(desc);
    f.setDemo(demo);
    f.setReturnType(returnParam);
    for (const ServiceParam& p : params) {
        Parameter param;
        param.setName(p.name);
        param.setType(p.type);
        param.setDesc(p.desc);
        f.addParam(param);
    }
    list.push_back(f);
    return list.back();
}
