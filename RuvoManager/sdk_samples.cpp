// The sample catalogue calls.

#include "RuvoManager/ruvo_sdk.h"
#include "catalogues/sample_catalogue.h"

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
