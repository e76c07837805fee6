#pragma once
// Converters of generated applet code into other dialects. Conv_C_Vci turns it into the
// measurement device's script dialect by an ordered chain of text rules: no parser, so whatever
// no rule knows passes through and the device's compiler reports it.

#include <string>
#include <vector>

#include "model/AppPacket.h"

namespace conv {

class ConvCodeBase {
public:
    // Converts the files of `in` into `out.files`; 0, or -1 with the reason in lastError().
    virtual int ConvCode(const AppPacket& in, AppPacket& out) = 0;
    // The variable definition lines the conversions so far produced.
    virtual std::vector<std::string> getVarDefines() = 0;
    virtual ~ConvCodeBase() = default;
};

// `in.text1` names the applet, `in.text2` is its main port (the main function's name).
class Conv_C_Vci : public ConvCodeBase {
public:
    int ConvCode(const AppPacket& in, AppPacket& out) override;
    std::vector<std::string> getVarDefines() override;

    // The chain over one file's text, for the file called `fileName`, with the settings of the
    // last ConvCode (or of setSettings). Throws std::runtime_error for a text no rule can take
    // (a path that is no valid UTF-8, a pattern that gives up on a pathological line).
    std::string Convert(const std::string& fileName, const std::string& text);
    void setSettings(const AppPacket& in);

    // Where the templates to remove lie: "Ruvo/code_template/functions" under the current
    // directory unless set. A missing directory means no templates.
    void setTemplateDir(std::string dir) { templateDir = std::move(dir); }
    // The GBK paths of the PATH("...") texts met, in order.
    const std::vector<std::string>& notedPaths() const { return paths; }
    const std::string& lastError() const { return error; }

    static constexpr const char* kDisabledMarker = "// disabled for vci";

private:
    std::vector<std::string> definitions;
    AppPacket settings;
    std::string templateDir = "Ruvo/code_template/functions";
    std::vector<std::string> paths;
    std::string error;
};

}  // namespace conv
