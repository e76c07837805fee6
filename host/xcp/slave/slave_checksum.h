#pragma once
// The checksums BUILD_CHECKSUM offers: the additions of the protocol and its three CRCs.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/xcp/xcp_slave.h"

namespace hostxcp {

// Bytes per item the checksum adds up (1 for the CRCs): a block must be a whole number of them.
size_t checksumWordSize(XcpChecksum type);
// Words of the additions are read in the slave's byte order.
uint32_t checksum(XcpChecksum type, const std::vector<uint8_t>& data, bool motorola);

}  // namespace hostxcp
