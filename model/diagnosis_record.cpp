#include "model/diagnosis_record.h"

#include <cstring>

namespace ruvo {

diagnosis::DoCan hostDoCan(const _KelnDoCan* from) {
    diagnosis::DoCan d;
    if (from == nullptr) return d;
    d.virutal_channel = from->virutal_channel;
    d.use_fun_addr = from->use_fun_addr;
    d.diagnose_type = from->diagnose_type;
    d.physical_address = from->physical_address;
    d.physical_address_type = from->physical_address_type;
    d.functional_address = from->functional_address;
    d.functional_address_type = from->functional_address_type;
    d.response_address = from->response_address;
    d.fill = from->fill;
    d.N_AE = from->N_AE;
    std::memcpy(static_cast<void*>(&d.can_items), &from->can_items, sizeof(d.can_items));
    return d;
}

}  // namespace ruvo
