// Fuzz target for the conversion chain: any bytes convert to some text or are refused with a
// std::runtime_error that says why. Any other exception, a crash, a hang or a sanitizer report
// is a finding.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "converter/conv_code.h"
#include "converter/var_rewrite.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The converter notes its rewrites on stdout.
    static const bool quiet = std::freopen("/dev/null", "w", stdout) != nullptr;
    (void)quiet;
    const std::string text(reinterpret_cast<const char*>(data), size);
    conv::Conv_C_Vci converter;
    AppPacket in;
    in.text1 = "App";
    in.text2 = "mainRun";
    in.files.push_back(AppFile{"main.cpp", APP_FILE_SOURCE, text});
    AppPacket out;
    if (converter.ConvCode(in, out) == 0) {
        if (out.files.size() != 1) std::abort();
    } else if (converter.lastError().empty() || !out.files.empty()) {
        std::abort();
    }
    std::string copy = text;
    try {
        conv::rewriteVariables(copy);
    } catch (const std::runtime_error&) {
    }
    return 0;
}
