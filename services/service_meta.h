#pragma once
// The editor's description of each service, kept as data: one table per family. The
// controllers pair each entry with its table slot (controllers.cpp).

#include <list>
#include <string>
#include <vector>

#include "model/RuvoFunction.h"

struct ServiceParam {
    const char* name;
    KelnVarType type;
    const char* desc;
};

// One service as the editor sees it. `demo` is the finished text.
struct ServiceMeta {
    std::string name;
    std::string desc;
    std::vector<ServiceParam> params;
    std::string demo;
};

// An XCP service: the library is called straight through its slot, so only the metadata is ours.
struct XcpMeta {
    int slot;          // 1..70 in _KelnXcpFun
    const char* code;  // protocol command code, "" for the services of the master itself
    std::string name;
    std::string desc;                  // with the command code in front
    std::vector<ServiceParam> params;  // the whole list; the common head and tail are added
    std::string demo;
};

namespace services::meta {

// Demo texts are printed into a bounded buffer, as the editor has always received them: every
// argument fills one "%s" in turn and "%%" stays a literal percent sign.
constexpr size_t kDemoBound = 1024;
constexpr size_t kLongDemoBound = 4096;  // the diagnosis demos set up a whole ECU record
std::string printDemo(size_t bound, const char* format, const char* a = "", const char* b = "",
                      const char* c = "", const char* d = "");

// Each family's table, built once; entries in registration order.
const std::vector<ServiceMeta>& can();      // com: CAN frames
const std::vector<ServiceMeta>& uds();      // com: diagnosis
const std::vector<ServiceMeta>& device();   // com: device functions and message boxes
const std::vector<ServiceMeta>& vci();      // the device functions as the vci family shows them
const std::vector<ServiceMeta>& gen();
const std::vector<ServiceMeta>& clog();
const std::vector<ServiceMeta>& cb();
const std::vector<ServiceMeta>& var();      // add, delete, set, get; see meta_var.cpp
const std::vector<XcpMeta>& xcp();          // metadata order, each with its slot

// The entry named `name` among `tables`; a missing entry is a fault of the tables and aborts.
const ServiceMeta& find(std::initializer_list<const std::vector<ServiceMeta>*> tables,
                        const char* name);

}  // namespace services::meta

// Appends one service record to a metadata list.
class ServiceCatalogue {
public:
    ServiceCatalogue(const char* prefix, int subType, const char* returnName, KelnVarType returnType,
                     const char* returnDesc = "");
    RuvoFunction& add(std::list<RuvoFunction>& list, const ServiceMeta& meta, void* address);
    RuvoFunction& add(std::list<RuvoFunction>& list, const std::string& name, void* address,
                      const std::string& demo, const std::string& desc, const std::vector<ServiceParam>& params);

private:
    const char* prefix;
    int subType;
    Parameter returnParam;
};
