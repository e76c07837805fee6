#pragma once
// The host's signal codec facade: signal lookup, physical-to-raw conversion and writing a raw
// value into a payload, over the workstation's bus databases (host/dbc/dbc_config.h).

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/dbc/dbc_codec.h"
#include "host/dbc/dbc_config.h"
#include "host/dbc/dbc_database.h"
#include "host/hostbridge_export.h"
#include "host/workstation.h"

// A signal as the codec hands it out. The default state (bit length 1, factor 1.0, empty name,
// message id 0, channel -1) means "not found"; name, message id and channel are its identity.
struct CSignal {
    std::string name;
    uint32_t messageId = 0;
    int32_t channel = -1;
    uint32_t startBit = 0;
    uint32_t bitLength = 1;
    int32_t byteOrder = 1;  // 1 Intel, 0 Motorola, as written after '@'
    int32_t valueType = 0;  // 0 unsigned, 1 signed, 2 float32, 3 float64
    double factor = 1.0;
    double offset = 0.0;
    double minimum = 0.0;
    double maximum = 0.0;
    std::string unit;
    double phyValue = 0.0;
    uint64_t rawValue = 0;
};

namespace DecodeFuncInterface {
// The first signal called `signalName` in message `messageId` on `channel` (either negative:
// any); a default CSignal when there is none.
HOSTBRIDGE_API CSignal QuerySig(int32_t channel, int32_t messageId, const char* signalName,
                                NetWorkType network);
// Rounded to the nearest step and clamped to what `bitLength` bits of `valueType` hold.
HOSTBRIDGE_API uint64_t PhyToRaw(uint32_t bitLength, double value, double factor, double offset,
                                 int32_t valueType, NetWorkType network);
// Writes signal->rawValue into `data` (`length` bytes); 0, or -1 when the signal is null, not
// found, or leaves the buffer.
HOSTBRIDGE_API int SetCanValue(CSignal* signal, uint8_t* data, int32_t length, NetWorkType network);
// The loaded databases: channel -> database names in load order, name -> contents, name ->
// marker name. False for a network other than CAN.
HOSTBRIDGE_API bool GetCfgFileInput(
    std::map<int, std::vector<std::string>>& channels,
    std::map<std::string, std::shared_ptr<const hostbridge::dbc::Database>>& databases,
    std::map<std::string, std::string>& markers, NetWorkType network);
}  // namespace DecodeFuncInterface
