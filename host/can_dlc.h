#pragma once
// The CAN (FD) DLC code to payload length table, shared by every frame path.

#include <cstdint>

namespace hostbridge {

inline constexpr uint8_t kDlcLengths[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};

// The smallest DLC whose payload holds `length` bytes; 15 for anything above 64.
inline int lengthToDlc(uint32_t length) {
    for (int dlc = 0; dlc < 16; ++dlc)
        if (kDlcLengths[dlc] >= length) return dlc;
    return 15;
}

}  // namespace hostbridge
