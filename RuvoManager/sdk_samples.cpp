// The sample catalogue calls.

#include "RuvoManager/ruvo_sdk.h"
#include "RuvoManager/sample_applet.h"
#include "catalogues/sample_catalogue.h"
#include "model/names.h"

namespace {

// Read once, on first use, below the project path of that moment; never refreshed.
ruvo::SampleCatalogue& catalogue() {
    static ruvo::SampleCatalogue instance(RuvoManager::getInstance().getProjectPath());
    return instance;
}

}  // namespace

namespace ruvo_sdk {

int getSamplesClassCount(int* count) {
    const int n = catalogue().classCount();
    if (count != nullptr) *count = n;
    return 0;
}

int getSamplesClass(char** names, int* priorities, int* sampleCounts, int capacity) {
    return catalogue().classes(names, priorities, sampleCounts, capacity);
}

int getSample(const char* className, sample_s* out, int capacity) {
    if (className == nullptr) return -1;
    return catalogue().samples(className, out, capacity);
}

}  // namespace ruvo_sdk

namespace ruvo {

namespace {

// The body without blank lines around it, ending in one newline.
std::string trimBlankLines(const std::string& body) {
    size_t start = 0;
    while (start < body.size()) {
        const size_t end = body.find('\n', start);
        if (end == std::string::npos) break;
        if (body.find_first_not_of(" \t\r", start) < end) break;
        start = end + 1;
    }
    std::string out = body.substr(start);
    const size_t last = out.find_last_not_of(" \t\r\n");
    out.erase(last == std::string::npos ? 0 : last + 1);
    return out.empty() ? out : out + "\n";
}

}  // namespace

bool checkSample(const std::string& code, std::vector<SampleSection>* sections, std::string* error) {
    std::vector<SampleSection> out;
    if (!splitSample(code, &out, error)) return false;
    for (const auto& s : out) {
        if (s.kind == "main" || s.kind == "globals") continue;
        const bool handler = s.kind != "start" && s.kind != "stop" && s.kind != "function";
        const std::string problem = nameProblem(handler ? NameKind::BindingKey : NameKind::Function, s.name);
        if (!problem.empty()) {
            *error = "line " + std::to_string(s.line) + ": \"" + s.name + "\" " + problem;
            return false;
        }
    }
    *sections = std::move(out);
    return true;
}

bool applySample(const std::string& applet, const std::vector<SampleSection>& sections, std::string* error) {
    const char* a = applet.c_str();
    auto failed = [&](const std::string& what) {
        *error = "cannot " + what + " in applet \"" + applet + "\"";
        return false;
    };
    if (ruvo_sdk::genDefaultMainFunction(a) != 0) return failed("make the main function");
    for (const auto& s : sections) {
        const char* key = s.name.c_str();
        std::string func;
        int r = 0;
        if (s.kind == "main") {
            func = "mainRun";
        } else if (s.kind == "globals") {
            func = "global_define";
            r = ruvo_sdk::createRuvoFunc(a, func.c_str(), RFT_GLOBAL_DEFINE, nullptr, 0);
        } else if (s.kind == "start" || s.kind == "stop") {
            func = s.name;
            r = ruvo_sdk::createRuvoFunc(a, key, s.kind == "start" ? RFT_PROGRAM_START : RFT_PROGRAM_STOP,
                                         nullptr, 0);
        } else if (s.kind == "function") {
            func = s.name;
            std::string name = s.name, params = s.params;
            char* argv[] = {&name[0], &params[0]};
            r = ruvo_sdk::createRuvoFunc(a, key, RFT_SELF_DEFINE, argv, 2);
        } else if (s.kind == "rx") {
            func = "on_can_rx_" + s.name;
            r = ruvo_sdk::insertRecvCANId(a, key, s.number);
        } else if (s.kind == "tx") {
            func = "on_can_tx_" + s.name;
            r = ruvo_sdk::insertSendCANId(a, key, s.number);
        } else if (s.kind == "pretx") {
            func = "on_can_pretx_" + s.name;
            r = ruvo_sdk::insertPreSendCANId(a, key, s.number);
        } else if (s.kind == "timer") {
            func = "on_" + s.name + "_timer";
            r = ruvo_sdk::insertTimer(a, key, s.number);
        } else if (s.kind == "key") {
            func = "on_shortcut_" + s.name;
            std::vector<const char*> parts;
            for (const auto& p : s.parts) parts.push_back(p.c_str());
            r = ruvo_sdk::insertKeyboardEvent(a, key, parts.data(), static_cast<unsigned>(parts.size()));
        } else {
            return failed("make a section of kind \"" + s.kind + "\"");
        }
        if (r != 0) return failed("make " + func);
        const std::string text = trimBlankLines(s.body);
        if (ruvo_sdk::setRuvoFuncCodeByName(a, func.c_str(), text.data(), static_cast<unsigned>(text.size())) != 0) {
            return failed("set the body of " + func);
        }
    }
    return true;
}

}  // namespace ruvo
