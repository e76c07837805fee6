// Generated files and the shared header texts the editor shows.

#include <algorithm>
#include <cstring>

#include "RuvoManager/ruvo_sdk.h"
#include "RuvoManager/sdk_call.h"
#include "generator/CppCodeGenerator.h"

namespace ruvo_sdk {

using detail::applet;
using detail::str;

namespace {

int generated(const char* name, bool (MpRuvo::*write)(const std::string&), const char* path) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    return (a.get()->*write)(str(path)) ? 0 : -1;
}

int sizeOf(const std::string& text, int* size) {
    if (size != nullptr) *size = text.empty() ? 0 : static_cast<int>(text.size() + 1);
    return 0;
}

int copyOut(const std::string& text, char* out, int size) {
    if (!text.empty() && out != nullptr && size > 0) {
        std::memcpy(out, text.data(), std::min(text.size(), static_cast<size_t>(size)));
    }
    return 0;
}

using TextSource = std::string (RuvoCode::*)() const;

int textSize(const char* name, TextSource source, int* size) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    return sizeOf((a.get()->*source)(), size);
}

int text(const char* name, TextSource source, char* out, int size) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    return copyOut((a.get()->*source)(), out, size);
}

std::string singleFileText(MpRuvo* a) {
    const AppPacket packet =
        CppCodeGenerator().generateSingleFile(a->getGlobalVarList(), a->getMpFuncs(), a->getEditType());
    return packet.files.empty() ? std::string() : packet.files.front().content;
}

}  // namespace

int generateSingleCodeFile(const char* a, const char* p) {
    return generated(a, &MpRuvo::generateSingleCodeFile, p);
}
int generateCodeFiles(const char* a, const char* p) {
    return generated(a, &MpRuvo::generateCodeFiles, p);
}
int generateSingleAndMultiCodeFiles(const char* a, const char* p) {
    return generated(a, &MpRuvo::generateSingleAndMultiCodeFiles, p);
}
int generateCombineCodeFile(const char* a, const char* p) {
    return generated(a, &MpRuvo::generateCombineCodeFile, p);
}

#define RUVO_TEXT_PAIR(sizeCall, textCall, source)                                      \
    int sizeCall(const char* a, int* size) { return textSize(a, &RuvoCode::source, size); } \
    int textCall(const char* a, char* out, int size) { return text(a, &RuvoCode::source, out, size); }

RUVO_TEXT_PAIR(getGlobalHeaderSize, getGlobalHeader, get_GlobalHead)
RUVO_TEXT_PAIR(getBasicHeaderSize, getBasicHeader, get_basicHead)
RUVO_TEXT_PAIR(getGenerateHeaderSize, getGenerateHeader, get_generateHead)
RUVO_TEXT_PAIR(getVarFuncHeaderSize, getVarFuncHeader, get_varFuncHead)
RUVO_TEXT_PAIR(getXcpFuncHeaderSize, getXcpFuncHeader, get_xcpFuncHead)
RUVO_TEXT_PAIR(getComFuncHeaderSize, getComFuncHeader, get_comFuncHead)
RUVO_TEXT_PAIR(getDbHeadSize, getDbHead, get_DbHead)
RUVO_TEXT_PAIR(getConfigHeadSize, getConfigHead, get_ConfigHead)
RUVO_TEXT_PAIR(getDocumentSize, getDocument, get_Document)

#undef RUVO_TEXT_PAIR

int getMainContentSize(const char* name, int* size) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    return sizeOf(singleFileText(a.get()), size);
}

int getMainContentCpp(const char* name, char* out, int size) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    copyOut(singleFileText(a.get()), out, size);
    try {
        CppCodeGenerator().generateResourceFile(a->getCodePath() + "resource" + ".h",
                                                a->getResourceCode());
    } catch (const std::exception&) {
        // The text reached the caller; a stale resource header shows at the next compile.
    }
    return 0;
}

}  // namespace ruvo_sdk
