// "ruvo samples", and starting an applet from a sample ("ruvo new ... --from-sample NAME").

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "RuvoManager/ruvo_sdk.h"
#include "apps/ruvo/cli.h"
#include "RuvoManager/sample_applet.h"

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
            if (!ruvo::checkSample(s.code, &sections, &error)) {
                throw std::runtime_error("sample \"" + sampleName + "\" cannot become an applet: " + error);
            }
            return sections;
        }
    }
    throw std::runtime_error("no sample \"" + sampleName + "\" (ruvo samples lists them)");
}

void applySample(const std::string& applet, const std::vector<ruvo::SampleSection>& sections) {
    std::string error;
    if (!ruvo::applySample(applet, sections, &error)) throw std::runtime_error(error);
}

}  // namespace cli
