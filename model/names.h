#pragma once
// Which names may become directories, file names and identifiers of generated code.
// A refused name never reaches the file system or the generator.

#include <string>

#include "platform/export.h"

namespace ruvo {

enum class NameKind {
    Applet,      // directories "<name>_code/", "<name>_mp/", the module file, a string literal
    Function,    // a C++ identifier and, in the multi-file layout, a file name
    Variable,    // a C++ identifier
    BindingKey,  // the tail of a handler name: "on_can_rx_<key>", "on_<key>_timer", ...
};

// "" when `name` may be used as `kind`, else the reason, e.g. "contains \"/\"".
RUVO_API std::string nameProblem(NameKind kind, const std::string& name);

// "" for a good name, else the one text the SDK logs and `ruvo` prints:
//   CALL: invalid KIND name "NAME": REASON
// with control characters of NAME shown as \xNN.
RUVO_API std::string badNameMessage(const char* call, NameKind kind, const std::string& name);

// True when two applet names would share a directory on a case-insensitive file system.
RUVO_API bool sameIgnoringCase(const std::string& a, const std::string& b);

}  // namespace ruvo
