#pragma once
// A CAN database read from DBC text: nodes, messages, signals, value tables, comments and
// attributes. Reading never throws and never trusts the text: a malformed file gives
// "FILE:LINE: reason".

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/hostbridge_export.h"

namespace hostbridge::dbc {

enum class ByteOrder { Intel, Motorola };  // @1 little endian, @0 big endian
enum class ValueType { Integer, Float32, Float64 };

struct Signal {
    std::string name;
    std::string codeName;  // a C++ identifier unique in its message (dbc_names.h)
    uint32_t startBit = 0;
    uint32_t length = 1;
    ByteOrder byteOrder = ByteOrder::Intel;
    bool isSigned = false;
    ValueType valueType = ValueType::Integer;
    double factor = 1.0;
    double offset = 0.0;
    // Factor and offset as decimal fractions (factorUnits / 10^decimalScale) when the text
    // allows it, so that e.g. 127 * 0.8 - 101.6 gives exactly 0; decimalScale -1 when not.
    int64_t factorUnits = 0;
    int64_t offsetUnits = 0;
    int decimalScale = -1;
    double minimum = 0.0;
    double maximum = 0.0;
    std::string unit;
    std::vector<std::string> receivers;
    std::string comment;
    std::map<int64_t, std::string> values;  // raw value -> text
    bool isMultiplexer = false;             // "M": selects which multiplexed signals are present
    // The switch that selects this signal and the switch values for which it is present; an
    // empty switch means always present. "mN" gives the message's "M" signal and [N, N].
    std::string muxSwitch;
    std::vector<std::pair<uint64_t, uint64_t>> muxRanges;
};

struct HOSTBRIDGE_API Message {
    uint32_t id = 0;  // without the extended flag
    bool extended = false;
    bool fd = false;
    std::string name;
    std::string codeName;  // a C++ identifier unique in its database (dbc_names.h)
    uint32_t size = 0;  // payload bytes, up to 64
    std::string transmitter;
    std::string comment;
    std::vector<Signal> signals;

    // By name, else by code name.
    const Signal* findSignal(const std::string& name) const;
};

struct AttributeDefinition {
    std::string objectType;  // "", "BU_", "BO_", "SG_", "EV_"
    std::string name;
    std::string valueType;  // INT, HEX, FLOAT, STRING, ENUM
    std::vector<std::string> enumLabels;
    std::string defaultValue;
};

struct Attribute {
    std::string name;
    std::string objectType;
    std::string object;  // node name, message id, "id signal"
    std::string value;   // as written (quotes removed)
};

struct HOSTBRIDGE_API Database {
    std::string version;
    std::vector<std::string> nodes;
    std::vector<Message> messages;
    std::map<std::string, std::map<int64_t, std::string>> valueTables;
    std::vector<AttributeDefinition> attributeDefinitions;
    std::vector<Attribute> attributes;
    std::string comment;
    std::map<std::string, std::string> nodeComments;

    // Duplicate ids or names: the first one in the file wins.
    const Message* findMessage(uint32_t id, bool extended) const;
    const Message* findMessage(const std::string& name) const;
};

// True and `out` filled, or false with `error` as "FILE:LINE: reason".
HOSTBRIDGE_API bool readDbcText(const std::string& text, const std::string& fileName, Database& out,
                 std::string& error);
HOSTBRIDGE_API bool readDbcFile(const std::string& path, Database& out, std::string& error);

}  // namespace hostbridge::dbc
