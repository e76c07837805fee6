#pragma once
// Host helper library, applet side.

#include <cstdint>
#include <string>

namespace commonkit {

inline uint64_t crc32(const void* data, size_t len) {
    uint32_t crc = 0xFFFFFFFFu;
    const unsigned char* p = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < len; ++i) {
        crc ^= p[i];
        for (int b = 0; b < 8; ++b) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return crc ^ 0xFFFFFFFFu;
}

}  // namespace commonkit
