#pragma once
// The catalogue of code samples, grouped by process, read from "sample.json" and the sample
// files beside it.

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "model/keln_types.h"
#include "platform/export.h"

// One sample as the editor receives it; the pointers point into the catalogue.
struct sample_s {
    char* name;
    char* code;
    char* desc;
};

namespace ruvo {

struct SampleRecord {
    std::string name;
    std::string file;
    std::string desc;
    std::string code;  // the whole text of the file
};

struct SampleClass {
    s32 priority = -1;
    std::string name;
    std::vector<SampleRecord> samples;
};

class RUVO_API SampleCatalogue {
public:
    // The directory of the catalogue below an installation.
    static constexpr const char* kDirectory = "/RuvoManager/inc/sample/";
    // Larger files are refused: the catalogue is text the editor shows.
    static constexpr size_t kMaxIndexBytes = 4u << 20;
    static constexpr size_t kMaxSampleBytes = 1u << 20;

    // Reads base + kDirectory + "sample.json" and the sample files it names. Nothing is thrown:
    // what cannot be read is logged and left out.
    explicit SampleCatalogue(const std::string& base);

    int classCount();
    // Fills up to `capacity` entries in name order; the names point into the catalogue.
    int classes(char** names, int* priorities, int* sampleCounts, int capacity);
    // Zeroes `capacity` records and fills them from the class's samples in file order. An
    // unknown class is created empty.
    int samples(const std::string& className, sample_s* out, int capacity);
    // A copy of one sample; false when there is none of that name in any class.
    bool find(const std::string& sampleName, SampleRecord* out);
    // A copy of the whole catalogue, for listing.
    std::map<std::string, SampleClass> snapshot();

private:
    void load(const std::string& base);
    std::mutex mutex;
    std::map<std::string, SampleClass> map;
};

}  // namespace ruvo
