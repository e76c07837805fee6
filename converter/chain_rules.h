#pragma once
// The rule blocks the conversion chain runs at fixed points: the diagnosis (UDS) rules with the
// text rules that ride with them, the channel rewrite, the XCP table and the final clean-up.
// Each runs over the whole text of one file, in place; the order inside each is the contract.

#include <functional>
#include <string>
#include <vector>

namespace conv {

// What the rules need of the conversion around them.
struct ChainContext {
    std::string appletName;
    std::string mainPort;                       // the applet's main function
    std::vector<std::string> localDefinitions;  // lines of the file's LOCAL_VAR block
    std::vector<std::string>* definitions = nullptr;  // the converter's definition lines
    std::vector<std::string> mainNames;          // names the main-function rule rewrites
    // The variable and buffer rewriting of one file text; returns the definition lines it needs.
    std::function<std::vector<std::string>(std::string&)> variableRewrite;
    // The device's value for a logical channel (0 when the channel is not mapped).
    std::function<int(int channel)> channelOf;
};

// First of all rules: which address kind the record uses.
void udsAddressKind(std::string& text);
// Every `source` = N; becomes `target` = the device value of channel N;.
void channelRewrite(std::string& text, const std::string& source, const std::string& target, const ChainContext& ctx);
// The diagnosis block, from the channel rewrite on, with the variable rewriting inside it.
void udsBlock(std::string& text, ChainContext& ctx);
// "int NAME()" becomes "int NAME(int argc,char **argv)" for each of ctx.mainNames.
void udsMainFunctionRule(std::string& text, const ChainContext& ctx);
// The XCP service names and types to the device's.
void xcpTable(std::string& text, const ChainContext& ctx);
// Last of all: leftover lines, format strings, constants, empty lines, and the leading
// sys_Log line naming `runName`.
void udsCleanUp(std::string& text, const std::string& runName);

}  // namespace conv
