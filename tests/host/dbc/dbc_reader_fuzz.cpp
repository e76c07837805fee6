// The DBC reader and the codec under hostile text: any input reads or fails with a message,
// and every message it yields decodes and encodes the input's own bytes as payload.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/dbc/dbc_codec.h"
#include "host/dbc/dbc_database.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace hostbridge::dbc;
    std::string text(reinterpret_cast<const char*>(data), size);
    Database db;
    std::string error;
    if (!readDbcText(text, "fuzz.dbc", db, error)) {
        if (error.rfind("fuzz.dbc:", 0) != 0) __builtin_trap();
        return 0;
    }
    std::vector<uint8_t> payload(64, 0);
    for (size_t i = 0; i < size && i < 64; ++i) payload[i] = data[i];
    std::vector<DecodedSignal> decoded;
    for (const Message& m : db.messages) {
        decodeMessage(m, payload.data(), m.size, decoded);
        for (const DecodedSignal& d : decoded) encodeSignal(*d.signal, d.physical, payload.data(), m.size);
    }
    return 0;
}
