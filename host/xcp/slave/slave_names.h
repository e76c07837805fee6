#pragma once
// The protocol's names of the commands, as slave files and messages spell them.

#include <string>

namespace hostxcp {

// The command code of a name such as "SHORT_UPLOAD"; -1 for none.
int commandCode(const std::string& name);

}  // namespace hostxcp
