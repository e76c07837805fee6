#pragma once
// Signal codec: raw bits in a payload <-> raw value <-> physical value, with DBC bit numbering
// (Intel: the start bit is the least significant bit, counted upward; Motorola: the start bit
// is the most significant, counted downward within a byte and on to bit 7 of the next byte).

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/hostbridge_export.h"

#include "host/dbc/dbc_database.h"

namespace hostbridge::dbc {

// The signal's bits as an unsigned value; 0 for bits beyond `size` bytes.
HOSTBRIDGE_API uint64_t extractRaw(const Signal& signal, const uint8_t* data, size_t size);
// Writes the low `length` bits of `raw`; false (nothing written) when the signal leaves the payload.
HOSTBRIDGE_API bool insertRaw(const Signal& signal, uint64_t raw, uint8_t* data, size_t size);

HOSTBRIDGE_API double rawToPhysical(const Signal& signal, uint64_t raw);
// Rounded to the nearest step and clamped to what the signal's bits can hold.
HOSTBRIDGE_API uint64_t physicalToRaw(const Signal& signal, double physical);
// The same for callers that only have a signal's scaling (valueType: 0 integer unsigned,
// 1 integer signed, 2 float32, 3 float64).
HOSTBRIDGE_API uint64_t physicalToRaw(uint32_t length, double physical, double factor, double offset,
                       int valueType);

struct DecodedSignal {
    const Signal* signal;
    uint64_t raw;
    double physical;
};

// Every signal present in the payload, in the message's order: multiplexed signals only when
// their switch (itself present) has a value in their ranges; none that reaches beyond `size`.
HOSTBRIDGE_API void decodeMessage(const Message& message, const uint8_t* data, size_t size,
                   std::vector<DecodedSignal>& out);

// Encodes one physical value into the payload; false when the signal leaves the payload.
HOSTBRIDGE_API bool encodeSignal(const Signal& signal, double physical, uint8_t* data, size_t size);

}  // namespace hostbridge::dbc
