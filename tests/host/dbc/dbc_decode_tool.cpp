// Prints our decode of frames as JSON, for comparison with other tools.
// Usage: dbc_decode_tool FILE.dbc FRAMES; FRAMES has lines "ID HEXPAYLOAD" (ID in hex, with
// bit 31 set for extended ids). One JSON object per line:
// {"id":..,"name":..,"signals":{NAME:[PHYSICAL,RAW],..},"reencode_mismatch":[NAME,..]}.

#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "host/dbc/dbc_codec.h"
#include "host/dbc/dbc_database.h"

int main(int argc, char** argv) {
    using namespace hostbridge::dbc;
    if (argc != 3) {
        std::cerr << "usage: dbc_decode_tool FILE.dbc FRAMES\n";
        return 2;
    }
    Database db;
    std::string error;
    if (!readDbcFile(argv[1], db, error)) {
        std::cerr << error << "\n";
        return 1;
    }
    std::ifstream in(argv[2]);
    std::string line;
    std::vector<DecodedSignal> decoded;
    while (std::getline(in, line)) {
        std::istringstream ls(line);
        std::string idText, hex;
        ls >> idText >> hex;
        unsigned long raw = std::stoul(idText, nullptr, 16);
        std::vector<uint8_t> data;
        for (size_t i = 0; i + 1 < hex.size(); i += 2)
            data.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
        const Message* m = db.findMessage(raw & 0x1FFFFFFFu, (raw & 0x80000000u) != 0);
        if (!m) {
            std::printf("{\"id\":%lu,\"name\":null}\n", raw);
            continue;
        }
        decodeMessage(*m, data.data(), data.size(), decoded);
        std::printf("{\"id\":%lu,\"name\":\"%s\",\"signals\":{", raw, m->name.c_str());
        for (size_t i = 0; i < decoded.size(); ++i)
            std::printf("%s\"%s\":[%.17g,%llu]", i ? "," : "", decoded[i].signal->name.c_str(),
                        decoded[i].physical, static_cast<unsigned long long>(decoded[i].raw));
        // Encoding each physical value back must leave the payload as it was; a double holds
        // raw values of up to 53 bits exactly, longer integers are not expected to survive.
        std::printf("},\"reencode_mismatch\":[");
        bool first = true;
        for (const DecodedSignal& d : decoded) {
            if (d.signal->length > 53 && d.signal->valueType == ValueType::Integer) continue;
            std::vector<uint8_t> copy = data;
            if (!encodeSignal(*d.signal, d.physical, copy.data(), copy.size()) || copy != data) {
                std::printf("%s\"%s\"", first ? "" : ",", d.signal->name.c_str());
                first = false;
            }
        }
        std::printf("]}\n");
    }
    return 0;
}
