// Placeholder body until the XCP table lands.
#include "converter/chain_rules.h"

namespace conv {

void xcpTable(std::string&, const ChainContext&) {}

}  // namespace conv
