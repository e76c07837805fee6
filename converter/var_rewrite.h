#pragma once
// System variables and the bus buffers of one file text, rewritten for the device: each system
// variable becomes a plain local, "var." calls become copies, and the send and receive buffers
// become the arrays `send` and `rcv`.

#include <string>
#include <utility>
#include <vector>

namespace conv {

// Rewrites `text` in place and returns the definition lines ("int32_t a_b=0;\n") it now needs,
// one per variable the store knows. Notes what it does on standard output.
std::vector<std::string> rewriteVariables(std::string& text);

// Each `first` replaced by its `second` in `text`, as replaceAll would one pair after another,
// in one walk when no statement can overlap another.
void replaceStatements(std::string& text, const std::vector<std::pair<std::string, std::string>>& rewrites);

}  // namespace conv
