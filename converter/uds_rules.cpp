// Placeholder bodies until the diagnosis rules land.
#include "converter/chain_rules.h"

namespace conv {

void udsAddressKind(std::string&) {}
void channelRewrite(std::string&, const std::string&, const std::string&, const ChainContext&) {}
void udsBlock(std::string&, ChainContext&) {}
void udsMainFunctionRule(std::string&, const ChainContext&) {}
void udsCleanUp(std::string&, const std::string&) {}

}  // namespace conv
