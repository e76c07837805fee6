#pragma once
// The applet's diagnosis records as the workstation's uds calls take them.

#include "host/uds/uds_records.h"
#include "model/records/ruvo_basic_def.h"

namespace ruvo {

// The CAN transport part, member by member; the zeroed default for a null record.
diagnosis::DoCan hostDoCan(const _KelnDoCan* from);

}  // namespace ruvo
