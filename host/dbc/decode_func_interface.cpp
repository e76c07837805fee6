#include "host/dbc.h"

namespace DecodeFuncInterface {

using namespace hostbridge::dbc;

CSignal QuerySig(int32_t channel, int32_t messageId, const char* signalName, NetWorkType network) {
    CSignal out;
    if (signalName == nullptr || network != NETWORK_CAN) return out;
    Message m;
    Signal s;
    if (!workstationDatabases().findSignal(channel, messageId, signalName, m, s)) return out;
    out.name = s.name;
    out.messageId = m.id;
    // The channel the signal was found on.
    for (const LoadedDatabase& e : workstationDatabases().entries())
        if ((channel < 0 || e.channel == channel) && e.database->findMessage(m.id, m.extended)) {
            out.channel = e.channel;
            break;
        }
    out.startBit = s.startBit;
    out.bitLength = s.length;
    out.byteOrder = s.byteOrder == ByteOrder::Intel ? 1 : 0;
    out.valueType = s.valueType == ValueType::Float32   ? 2
                    : s.valueType == ValueType::Float64 ? 3
                    : s.isSigned                        ? 1
                                                        : 0;
    out.factor = s.factor;
    out.offset = s.offset;
    out.minimum = s.minimum;
    out.maximum = s.maximum;
    out.unit = s.unit;
    return out;
}

uint64_t PhyToRaw(uint32_t bitLength, double value, double factor, double offset, int32_t valueType,
                  NetWorkType) {
    return physicalToRaw(bitLength, value, factor, offset, valueType);
}

int SetCanValue(CSignal* signal, uint8_t* data, int32_t length, NetWorkType network) {
    if (signal == nullptr || data == nullptr || length <= 0 || network != NETWORK_CAN ||
        signal->name.empty())
        return -1;
    Signal s;
    s.startBit = signal->startBit;
    s.length = signal->bitLength;
    s.byteOrder = signal->byteOrder == 1 ? ByteOrder::Intel : ByteOrder::Motorola;
    return insertRaw(s, signal->rawValue, data, static_cast<size_t>(length)) ? 0 : -1;
}

bool GetCfgFileInput(std::map<int, std::vector<std::string>>& channels,
                     std::map<std::string, std::shared_ptr<const Database>>& databases,
                     std::map<std::string, std::string>& markers, NetWorkType network) {
    channels.clear();
    databases.clear();
    markers.clear();
    if (network != NETWORK_CAN) return false;
    for (const LoadedDatabase& e : workstationDatabases().entries()) {
        channels[e.channel].push_back(e.name);
        databases.emplace(e.name, e.database);
        markers.emplace(e.name, e.marker);
    }
    return true;
}

}  // namespace DecodeFuncInterface
