#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "converter/conv_code.h"
#include "converter/text_rules.h"
#include "converter/vci_chain.h"

namespace conv {

void Conv_C_Vci::setSettings(const AppPacket& in) {
    settings.lines = in.lines;
    settings.text1 = in.text1;
    settings.text2 = in.text2;
    settings.status = in.status;
}

std::vector<std::string> Conv_C_Vci::getVarDefines() { return definitions; }

std::string Conv_C_Vci::Convert(const std::string& fileName, const std::string& text) {
    if (text.find(kDisabledMarker) != std::string::npos) {
        std::string line = "sys_Log(\"%1: vci script is not support\");\n";
        replaceAll(line, "%1", fileName);
        return line;
    }
    ChainState state = makeChainState(settings.text1, settings.text2);
    try {
        state.templates = loadTemplates(templateDir);
    } catch (const std::filesystem::filesystem_error& e) {
        std::printf("Conv_C_Vci::Convert filesystem err: %s\n", e.what());
    }
    state.runName = fileName;
    state.ctx.definitions = &definitions;
    std::string out = runChain(vciChain(), text, state);
    paths.insert(paths.end(), state.paths.begin(), state.paths.end());
    return out;
}

int Conv_C_Vci::ConvCode(const AppPacket& in, AppPacket& out) {
    error.clear();
    setSettings(in);
    out.files.clear();
    bool failed = false;
    try {
        for (const AppFile& f : in.files) out.files.push_back(AppFile{f.name, f.type, Convert(f.name, f.content)});
    } catch (const std::filesystem::filesystem_error& e) {
        std::printf("Conv_C_Vci::ConvCode filesystem err: %s\n", e.what());
        error = e.what();
        failed = true;
    } catch (const std::exception& e) {
        error = e.what();
        failed = true;
    }
    if (failed) {
        out.files.clear();
        out.status = -1;
        return -1;
    }
    out.status = 0;
    return 0;
}

}  // namespace conv
