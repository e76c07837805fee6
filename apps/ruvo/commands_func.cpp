// "ruvo func": set a function's body from a file, creating the function first if asked.

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "RuvoManager/ruvo_sdk.h"
#include "apps/ruvo/cli.h"

namespace cli {
namespace {

struct FuncOptions {
    std::string bodyFile;
    int createSubType = -1;
    std::string params;
};

FuncOptions parseOptions(const Args& args, size_t from) {
    FuncOptions o;
    for (size_t i = from; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (i + 1 >= args.size()) throw UsageError("option " + a + " needs a value");
        const std::string& value = args[++i];
        if (a == "--body") {
            o.bodyFile = userPath(value);
        } else if (a == "--create") {
            char* end = nullptr;
            const long v = std::strtol(value.c_str(), &end, 10);
            if (end == value.c_str() || *end != '\0') throw UsageError("--create takes a sub type number");
            o.createSubType = static_cast<int>(v);
        } else if (a == "--params") {
            o.params = value;
        } else {
            throw UsageError("unknown option " + a);
        }
    }
    if (o.bodyFile.empty() && o.createSubType < 0) throw UsageError("nothing to do");
    return o;
}

int cmdFunc(const Args& args) {
    if (args.size() < 3) throw UsageError("expected PROJECT APPLET NAME");
    const FuncOptions o = parseOptions(args, 3);
    const std::string& func = args[2];
    requireName(ruvo::NameKind::Function, func);
    const std::string applet = openApplet(args[0], args[1]);

    if (o.createSubType >= 0) {
        std::string name = func, params = o.params;
        char* argv[] = {&name[0], &params[0]};
        if (ruvo_sdk::createRuvoFunc(applet.c_str(), func.c_str(), o.createSubType, argv, 2) != 0) {
            throw std::runtime_error("cannot create \"" + func + "\" of sub type " +
                                     std::to_string(o.createSubType));
        }
    }
    if (!o.bodyFile.empty()) {
        std::ifstream in(o.bodyFile, std::ios::binary);
        if (!in) throw std::runtime_error("cannot read " + o.bodyFile);
        std::ostringstream text;
        text << in.rdbuf();
        const std::string body = text.str();
        if (ruvo_sdk::existRuvoFunc(applet.c_str(), func.c_str()) != 0) {
            throw std::runtime_error("applet \"" + applet + "\" has no function \"" + func + "\"");
        }
        ruvo_sdk::setRuvoFuncCodeByName(applet.c_str(), func.c_str(), body.data(),
                                        static_cast<unsigned>(body.size()));
    }
    if (ruvo_sdk::serilize(applet.c_str(), "") != 0) throw std::runtime_error("cannot save the applet");
    std::printf("%s: %s saved\n", applet.c_str(), func.c_str());
    return 0;
}

Registrar rFunc({"func", "PROJECT APPLET NAME [--create SUBTYPE [--params TEXT]] [--body FILE]",
                 "create a function (sub type number) and/or set its body from a file", cmdFunc,
                 "--create SUBTYPE makes NAME from the template of that sub type (0 main run,\n"
                 "2 global definitions, 22 self-defined with --params \"s32 a, u8* p\", ...);\n"
                 "--body FILE sets the body of an existing function to the file's text. Saves.\n"
                 "NAME must be a C++ identifier and no keyword."});

}  // namespace
}  // namespace cli
