#include "host/bus/socketcand_server.h"

namespace hostbridge {

bool parseListenAddress(const std::string& text, std::string* host, int* port, std::string* error) {
    std::string h = "127.0.0.1";
    std::string p = text;
    if (!text.empty() && text[0] == '[') {
        const size_t close = text.find(']');
        if (close == std::string::npos || close + 1 >= text.size() || text[close + 1] != ':') {
            if (error) *error = "bad listen address \"" + text + "\": expected [IPV6]:PORT";
            return false;
        }
        h = text.substr(1, close - 1);
        p = text.substr(close + 2);
    } else {
        const size_t colon = text.rfind(':');
        if (colon != std::string::npos) {
            if (text.find(':') != colon) {
                if (error) *error = "bad listen address \"" + text + "\": write an IPv6 host as [HOST]:PORT";
                return false;
            }
            h = text.substr(0, colon);
            p = text.substr(colon + 1);
        }
    }
    if (h.empty()) {
        if (error) *error = "bad listen address \"" + text + "\": empty host";
        return false;
    }
    long value = 0;
    bool digits = !p.empty() && p.size() <= 5;
    for (char c : p) {
        if (c < '0' || c > '9') digits = false;
        else value = value * 10 + (c - '0');
    }
    if (!digits || value > 65535) {
        if (error) *error = "bad listen address \"" + text + "\": port must be 0 to 65535";
        return false;
    }
    if (host) *host = h;
    if (port) *port = static_cast<int>(value);
    return true;
}

}  // namespace hostbridge
