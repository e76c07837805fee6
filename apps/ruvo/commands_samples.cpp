// "ruvo samples", and starting an applet from a sample ("ruvo new ... --from-sample NAME").

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "RuvoManager/ruvo_sdk.h"
#include "apps/ruvo/cli.h"
#include "catalogues/sample_sections.h"

namespace cli {

namespace {

struct Listed {
    std::string name;
    int priority = -1;
    std::vector<sample_s> samples;
};

// The catalogue lies below the installation directory, where ruvo runs; it is read once, so
// the project path may be set to the user's project afterwards.
std::vector<Listed> readCatalogue() {
    std::error_code ec;
    const std::string installation = std::filesystem::current_path(ec).string();
    const std::string previous = ruvo_sdk::getRuvoPorjectPath();
    ruvo_sdk::initRuvo(installation.c_str());
    int count = 0;
    ruvo_sdk::getSamplesClassCount(&count);
    ruvo_sdk::initRuvo(previous.c_str());
    std::vector<char*> names(static_cast<size_t>(count));
    std::vector<int> priorities(names.size()), sizes(names.size());
    std::vector<Listed> out;
    if (count == 0) return out;
    ruvo_sdk::getSamplesClass(names.data(), priorities.data(), sizes.data(), count);
    for (int i = 0; i < count; ++i) {
        Listed l;
        l.name = names[i];
        l.priority = priorities[i];
        l.samples.resize(static_cast<size_t>(sizes[i]));
        ruvo_sdk::getSample(names[i], l.samples.data(), sizes[i]);
        out.push_back(std::move(l));
    }
    // The editor's order: by priority, then by name.
    std::stable_sort(out.begin(), out.end(),
                     [](const Listed& a, const Listed& b) { return a.priority < b.priority; });
    return out;
}

std::string trimBlankLines(const std::string& body) {
    size_t start = 0;
    while (start < body.size()) {
        const size_t end = body.find('\n', start);
        const std::string line = body.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (line.find_first_not_of(" \t\r") != std::string::npos || end == std::string::npos) break;
        start = end + 1;
    }
    std::string out = body.substr(start);
    const size_t last = out.find_last_not_of(" \t\r\n");
    out.erase(last == std::string::npos ? 0 : last + 1);
    return out.empty() ? out : out + "\n";
}

void setBody(const std::string& applet, const std::string& func, const std::string& body) {
    const std::string text = trimBlankLines(body);
    if (ruvo_sdk::setRuvoFuncCodeByName(applet.c_str(), func.c_str(), text.data(),
                                        static_cast<unsigned>(text.size())) != 0) {
        throw std::runtime_error("cannot set the body of " + func);
    }
}

void check(int result, const std::string& what) {
    if (result != 0) throw std::runtime_error("cannot " + what);
}

int cmdSamples(const Args& args) {
    if (!args.empty()) throw UsageError("takes no arguments");
    const std::vector<Listed> classes = readCatalogue();
    if (classes.empty()) {
        std::printf("no samples installed\n");
        return 0;
    }
    size_t width = 0;
    for (const auto& c : classes) {
        for (const auto& s : c.samples) width = std::max(width, std::string(s.name).size());
    }
    for (const auto& c : classes) {
        std::printf("%s\n", c.name.c_str());
        for (const auto& s : c.samples) {
            std::printf("  %-*s  %s\n", static_cast<int>(width), s.name, s.desc);
        }
    }
    return 0;
}

Registrar rSamples({"samples", "", "list the code samples, by process", cmdSamples,
                    "Prints each process of the installation's sample catalogue\n"
                    "(RuvoManager/inc/sample/sample.json), in order of priority, and under it its\n"
                    "samples: name and description. \"ruvo new PROJECT APPLET --from-sample NAME\"\n"
                    "starts an applet from one."});

}  // namespace

// The sample's sections, checked before anything is created; raises for an unknown sample or
// a malformed one.
std::vector<ruvo::SampleSection> sampleSections(const std::string& sampleName) {
    for (const auto& c : readCatalogue()) {
        for (const auto& s : c.samples) {
            if (sampleName != s.name) continue;
            std::vector<ruvo::SampleSection> sections;
            std::string error;
            if (!ruvo::splitSample(s.code, &sections, &error)) {
                throw std::runtime_error("sample \"" + sampleName + "\" is malformed: " + error);
            }
            for (const auto& section : sections) {
                if (section.kind == "main" || section.kind == "globals") continue;
                const bool binding = section.kind != "start" && section.kind != "stop" && section.kind != "function";
                requireName(binding ? ruvo::NameKind::BindingKey : ruvo::NameKind::Function, section.name);
            }
            return sections;
        }
    }
    throw std::runtime_error("no sample \"" + sampleName + "\" (ruvo samples lists them)");
}

// Makes each section's function in the applet and sets its body; "mainRun" always exists.
void applySample(const std::string& applet, const std::vector<ruvo::SampleSection>& sections) {
    const char* a = applet.c_str();
    check(ruvo_sdk::genDefaultMainFunction(a), "make the main function");
    for (const auto& s : sections) {
        const char* key = s.name.c_str();
        std::string func;
        if (s.kind == "main") {
            func = "mainRun";
        } else if (s.kind == "globals") {
            func = "global_define";
            check(ruvo_sdk::createRuvoFunc(a, func.c_str(), RFT_GLOBAL_DEFINE, nullptr, 0), "make " + func);
        } else if (s.kind == "start" || s.kind == "stop") {
            func = s.name;
            check(ruvo_sdk::createRuvoFunc(a, key, s.kind == "start" ? RFT_PROGRAM_START : RFT_PROGRAM_STOP,
                                           nullptr, 0),
                  "make " + func);
        } else if (s.kind == "function") {
            func = s.name;
            std::string name = s.name, params = s.params;
            char* argv[] = {&name[0], &params[0]};
            check(ruvo_sdk::createRuvoFunc(a, key, RFT_SELF_DEFINE, argv, 2), "make " + func);
        } else if (s.kind == "rx") {
            func = "on_can_rx_" + s.name;
            check(ruvo_sdk::insertRecvCANId(a, key, s.number), "bind " + func);
        } else if (s.kind == "tx") {
            func = "on_can_tx_" + s.name;
            check(ruvo_sdk::insertSendCANId(a, key, s.number), "bind " + func);
        } else if (s.kind == "pretx") {
            func = "on_can_pretx_" + s.name;
            check(ruvo_sdk::insertPreSendCANId(a, key, s.number), "bind " + func);
        } else if (s.kind == "timer") {
            func = "on_" + s.name + "_timer";
            check(ruvo_sdk::insertTimer(a, key, s.number), "bind " + func);
        } else if (s.kind == "key") {
            func = "on_shortcut_" + s.name;
            std::vector<const char*> parts;
            for (const auto& p : s.parts) parts.push_back(p.c_str());
            check(ruvo_sdk::insertKeyboardEvent(a, key, parts.data(), static_cast<unsigned>(parts.size())),
                  "bind " + func);
        }
        setBody(applet, func, s.body);
    }
}

}  // namespace cli
