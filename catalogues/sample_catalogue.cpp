#include "catalogues/sample_catalogue.h"

#include <cjson/cJSON.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "host/log_interface.h"

namespace fs = std::filesystem;

namespace ruvo {

namespace {

// Reads a regular file whole if it is at most `limit` bytes; `why` tells what went wrong.
bool readLimited(const fs::path& path, size_t limit, std::string* text, std::string* why) {
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) {
        *why = "not a readable file";
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        *why = "cannot be opened";
        return false;
    }
    // Read one byte past the limit rather than trusting the size the directory reports.
    std::string buffer(limit + 1, '\0');
    in.read(&buffer[0], static_cast<std::streamsize>(buffer.size()));
    const size_t got = static_cast<size_t>(in.gcount());
    if (got > limit) {
        *why = "larger than " + std::to_string(limit) + " bytes";
        return false;
    }
    buffer.resize(got);
    *text = std::move(buffer);
    return true;
}

// A sample file is named by a plain file name: no directory part, nothing that climbs out.
bool plainFileName(const std::string& name) {
    if (name.empty() || name == "." || name == ".." || name.size() > 255) return false;
    for (const unsigned char c : name) {
        if (c == '/' || c == '\\' || c < 0x20 || c == 0x7F) return false;
    }
    return true;
}

const char* stringOf(const cJSON* item) {
    return cJSON_IsString(item) && item->valuestring != nullptr ? item->valuestring : nullptr;
}

s32 priorityOf(double v) {
    if (std::isnan(v)) return -1;
    if (v <= -2147483648.0) return INT32_MIN;
    if (v >= 2147483647.0) return INT32_MAX;
    return static_cast<s32>(v);
}

}  // namespace

SampleCatalogue::SampleCatalogue(const std::string& base) { load(base); }

void SampleCatalogue::load(const std::string& base) {
    const std::string dir = base + kDirectory;
    const std::string index = dir + "sample.json";
    std::string text, why;
    std::error_code ec;
    if (!fs::exists(index, ec)) return;  // no catalogue installed: an empty one
    if (!readLimited(index, kMaxIndexBytes, &text, &why)) {
        log_interface::log_error("sample catalogue: %s %s", index.c_str(), why.c_str());
        return;
    }
    std::unique_ptr<cJSON, void (*)(cJSON*)> root(cJSON_Parse(text.c_str()), cJSON_Delete);
    if (!root) {
        const char* at = cJSON_GetErrorPtr();
        const std::string near = at != nullptr ? std::string(at).substr(0, 40) : std::string();
        log_interface::log_error("parse sample.json error: %s near \"%s\"", index.c_str(), near.c_str());
        return;
    }
    const cJSON* processes = cJSON_GetObjectItem(root.get(), "processes");
    if (processes == nullptr) return;
    if (!cJSON_IsArray(processes)) {
        log_interface::log_error("sample catalogue: %s: \"processes\" is not an array", index.c_str());
        return;
    }
    // Symbolic links in the directory may not lead a read out of it.
    const fs::path realDir = fs::canonical(dir, ec);
    if (ec) return;
    const int classCount = cJSON_GetArraySize(processes);
    for (int i = 0; i < classCount; ++i) {
        const cJSON* process = cJSON_GetArrayItem(processes, i);
        const char* className = stringOf(cJSON_GetObjectItem(process, "name"));
        if (className == nullptr) {
            log_interface::log_error("sample catalogue: process %d has no \"name\" string, left out", i);
            continue;
        }
        SampleClass c;
        c.name = className;
        const cJSON* priority = cJSON_GetObjectItem(process, "priority");
        if (cJSON_IsNumber(priority)) {
            c.priority = priorityOf(priority->valuedouble);
        } else if (priority != nullptr) {
            log_interface::log_error("sample catalogue: \"priority\" of %s is not a number", className);
        }
        const cJSON* samples = cJSON_GetObjectItem(process, "samples");
        if (samples != nullptr && !cJSON_IsArray(samples)) {
            log_interface::log_error("sample catalogue: \"samples\" of %s is not an array", className);
        }
        const int sampleCount = cJSON_IsArray(samples) ? cJSON_GetArraySize(samples) : 0;
        for (int j = 0; j < sampleCount; ++j) {
            const cJSON* sample = cJSON_GetArrayItem(samples, j);
            const char* name = stringOf(cJSON_GetObjectItem(sample, "name"));
            const char* file = stringOf(cJSON_GetObjectItem(sample, "file"));
            if (name == nullptr || file == nullptr) {
                log_interface::log_error("sample catalogue: sample %d of %s lacks a \"name\" or \"file\" string, "
                                         "left out", j, className);
                continue;
            }
            if (!plainFileName(file)) {
                log_interface::log_error("sample catalogue: sample %s of %s: file \"%s\" is not a plain file name "
                                         "in %s, left out", name, className, file, dir.c_str());
                continue;
            }
            const fs::path real = fs::canonical(realDir / file, ec);
            if (ec || real.parent_path() != realDir) {
                log_interface::log_error("sample catalogue: sample %s of %s: %s%s is missing or lies outside "
                                         "%s, left out", name, className, dir.c_str(), file, dir.c_str());
                continue;
            }
            SampleRecord r;
            r.name = name;
            r.file = file;
            if (!readLimited(real, kMaxSampleBytes, &r.code, &why)) {
                log_interface::log_error("sample catalogue: sample %s of %s: %s%s %s, left out", name, className,
                                         dir.c_str(), file, why.c_str());
                continue;
            }
            if (const char* desc = stringOf(cJSON_GetObjectItem(sample, "desc"))) r.desc = desc;
            c.samples.push_back(std::move(r));
        }
        map[c.name] = std::move(c);
    }
}

int SampleCatalogue::classCount() {
    std::lock_guard<std::mutex> lock(mutex);
    return static_cast<int>(map.size());
}

int SampleCatalogue::classes(char** names, int* priorities, int* sampleCounts, int capacity) {
    if (capacity <= 0) return 0;
    if (names == nullptr || priorities == nullptr || sampleCounts == nullptr) return -1;
    std::lock_guard<std::mutex> lock(mutex);
    int n = 0;
    for (auto& e : map) {
        if (n >= capacity) break;
        names[n] = &e.second.name[0];
        priorities[n] = e.second.priority;
        sampleCounts[n] = static_cast<int>(e.second.samples.size());
        ++n;
    }
    return 0;
}

int SampleCatalogue::samples(const std::string& className, sample_s* out, int capacity) {
    if (capacity <= 0) return 0;
    if (out == nullptr) return -1;
    std::memset(out, 0, sizeof(sample_s) * static_cast<size_t>(capacity));
    std::lock_guard<std::mutex> lock(mutex);
    SampleClass& c = map[className];  // an unknown name stays as an empty class
    if (c.name.empty()) c.name = className;
    int n = 0;
    for (auto& s : c.samples) {
        if (n >= capacity) break;
        out[n].name = &s.name[0];
        out[n].code = &s.code[0];
        out[n].desc = &s.desc[0];
        ++n;
    }
    return 0;
}

bool SampleCatalogue::find(const std::string& sampleName, SampleRecord* out) {
    std::lock_guard<std::mutex> lock(mutex);
    for (const auto& c : map) {
        for (const auto& s : c.second.samples) {
            if (s.name == sampleName) {
                *out = s;
                return true;
            }
        }
    }
    return false;
}

std::map<std::string, SampleClass> SampleCatalogue::snapshot() {
    std::lock_guard<std::mutex> lock(mutex);
    return map;
}

}  // namespace ruvo
