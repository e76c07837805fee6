#pragma once
// The ordered steps of one file's conversion to the device dialect. Each runs over the whole
// text; the order decides the result, so it is a list the tests can reorder.

#include <string>
#include <vector>

#include "converter/chain_rules.h"

namespace conv {

struct ChainState {
    ChainContext ctx;
    std::string runName;                 // the file's name, for the leading log line
    std::vector<std::string> templates;  // template texts, largest first
    std::vector<std::string> paths;      // what the path step noted, GBK
    std::vector<std::string> exported;   // names whose exported declaration runs main.cpp
};

struct ChainStep {
    const char* name;
    void (*run)(std::string& text, ChainState& state);
};

// A state for one file of `appletName` whose main function is `mainPort`: the variable rewriting
// and the host's channel mapping wired in.
ChainState makeChainState(const std::string& appletName, const std::string& mainPort);

// The 13 steps in their order.
const std::vector<ChainStep>& vciChain();
std::string runChain(const std::vector<ChainStep>& steps, std::string text, ChainState& state);

// The template texts of `dir`, carriage returns dropped, largest file first (by name among
// equals). A missing directory gives none.
std::vector<std::string> loadTemplates(const std::string& dir);

}  // namespace conv
