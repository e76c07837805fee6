// Conversion of an applet's generated code into a device script package.

#include "RuvoManager/ruvo_sdk.h"
#include "RuvoManager/sdk_call.h"
#include "converter/package.h"

namespace ruvo_sdk {

using detail::applet;
using detail::str;

int transCCodeToVciCode(const char* name, const char* targetDir, char** list, int count,
                        std::vector<std::string>* written, std::string* error) {
    conv::PackageRequest request;
    {
        auto a = applet(name);
        if (a == nullptr) {
            if (error != nullptr) *error = "no applet \"" + str(name) + "\"";
            return -1;
        }
        request.codePath = a->getCodePath();
        a->serialize("");
        request.appletName = str(name);
    }
    for (int i = 0; list != nullptr && i < count; ++i) request.lines.push_back(str(list[i]));
    request.mainPort = RuvoManager::getInstance().getAppletMainPort(request.appletName);
    conv::PackageResult result;
    const int rc = conv::writeVciPackage(request, str(targetDir), result);
    if (rc != 0) log_interface::log_error("transCCodeToVciCode %s: %s", request.appletName.c_str(), result.error.c_str());
    if (written != nullptr) *written = result.written;
    if (error != nullptr) *error = result.error;
    return rc;
}

int transCCodeToVciCode(const char* name, const char* targetDir, char** list, int count) {
    return transCCodeToVciCode(name, targetDir, list, count, nullptr, nullptr);
}

}  // namespace ruvo_sdk
