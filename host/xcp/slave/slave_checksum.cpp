#include "host/xcp/slave/slave_checksum.h"

namespace hostxcp {

size_t checksumWordSize(XcpChecksum type) {
    switch (type) {
    case XcpChecksum::Add22: case XcpChecksum::Add24: return 2;
    case XcpChecksum::Add44: return 4;
    default: return 1;
    }
}

uint32_t checksum(XcpChecksum type, const std::vector<uint8_t>& data, bool motorola) {
    const size_t word = checksumWordSize(type);
    auto item = [&](size_t at) {
        uint32_t v = 0;
        for (size_t i = 0; i < word; ++i) v = (v << 8) | data[at + (motorola ? i : word - 1 - i)];
        return v;
    };
    switch (type) {
    case XcpChecksum::Add11: case XcpChecksum::Add12: case XcpChecksum::Add14:
    case XcpChecksum::Add22: case XcpChecksum::Add24: case XcpChecksum::Add44: {
        uint32_t sum = 0;
        for (size_t at = 0; at + word <= data.size(); at += word) sum += item(at);
        if (type == XcpChecksum::Add11) return sum & 0xFF;
        if (type == XcpChecksum::Add12 || type == XcpChecksum::Add22) return sum & 0xFFFF;
        return sum;
    }
    case XcpChecksum::Crc16: {  // reflected polynomial 0x8005, initial 0
        uint16_t crc = 0;
        for (uint8_t b : data) {
            crc ^= b;
            for (int i = 0; i < 8; ++i) crc = static_cast<uint16_t>(crc & 1 ? (crc >> 1) ^ 0xA001 : crc >> 1);
        }
        return crc;
    }
    case XcpChecksum::Crc16Ccitt: {  // polynomial 0x1021, initial 0xFFFF
        uint16_t crc = 0xFFFF;
        for (uint8_t b : data) {
            crc ^= static_cast<uint16_t>(b << 8);
            for (int i = 0; i < 8; ++i)
                crc = static_cast<uint16_t>(crc & 0x8000 ? (crc << 1) ^ 0x1021 : crc << 1);
        }
        return crc;
    }
    case XcpChecksum::Crc32: {  // reflected polynomial 0x04C11DB7, initial and final 0xFFFFFFFF
        uint32_t crc = 0xFFFFFFFF;
        for (uint8_t b : data) {
            crc ^= b;
            for (int i = 0; i < 8; ++i) crc = crc & 1 ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
        }
        return ~crc;
    }
    }
    return 0;
}

}  // namespace hostxcp
