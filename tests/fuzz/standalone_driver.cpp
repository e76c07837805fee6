// Runs a libFuzzer target without libFuzzer: every file of the seed corpus, then a fixed number
// of deterministic mutations of them. Used when the build is not made with clang's fuzzer, so
// the ordinary test suite still throws malformed input at every target.
//
//   TARGET CORPUS_DIR [--runs N] [--seed S]

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

using Bytes = std::vector<uint8_t>;

// Tokens that steer mutations towards the structure of the inputs (JSON, logs).
const char* const kTokens[] = {"{", "}", "[", "]", "\"", ":", ",", "#", "##", "(", ")", "\n",
                               "-1", "0x", "1e309", "18446744073709551616", "\\u0000", "\xff",
                               "can", "vcan", "null", "true", "9999999999"};

void mutate(Bytes& b, const std::vector<Bytes>& corpus, std::mt19937_64& rng) {
    auto pick = [&](size_t n) { return n == 0 ? size_t{0} : static_cast<size_t>(rng() % n); };
    switch (rng() % 7) {
        case 0:
            if (!b.empty()) b[pick(b.size())] ^= static_cast<uint8_t>(1u << (rng() % 8));
            break;
        case 1:
            if (!b.empty()) b[pick(b.size())] = static_cast<uint8_t>(rng());
            break;
        case 2:
            b.insert(b.begin() + static_cast<long>(pick(b.size() + 1)), static_cast<uint8_t>(rng()));
            break;
        case 3:
            if (!b.empty()) {
                const size_t at = pick(b.size());
                const size_t n = 1 + pick(std::min<size_t>(b.size() - at, 64));
                b.erase(b.begin() + static_cast<long>(at), b.begin() + static_cast<long>(at + n));
            }
            break;
        case 4:
            if (!b.empty()) {
                const size_t at = pick(b.size());
                const size_t n = 1 + pick(std::min<size_t>(b.size() - at, 64));
                const Bytes copy(b.begin() + static_cast<long>(at), b.begin() + static_cast<long>(at + n));
                b.insert(b.begin() + static_cast<long>(pick(b.size() + 1)), copy.begin(), copy.end());
            }
            break;
        case 5: {
            const char* t = kTokens[pick(std::size(kTokens))];
            b.insert(b.begin() + static_cast<long>(pick(b.size() + 1)), t, t + std::strlen(t));
            break;
        }
        case 6: {
            const Bytes& other = corpus[pick(corpus.size())];
            const size_t cut = pick(b.size() + 1);
            const size_t from = pick(other.size() + 1);
            b.resize(cut);
            b.insert(b.end(), other.begin() + static_cast<long>(from), other.end());
            break;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s CORPUS_DIR [--runs N] [--seed S]\n", argv[0]);
        return 2;
    }
    long runs = 10000;
    unsigned long long seed = 1;
    for (int i = 2; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--runs") == 0) runs = std::atol(argv[i + 1]);
        if (std::strcmp(argv[i], "--seed") == 0) seed = std::strtoull(argv[i + 1], nullptr, 10);
    }
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    std::vector<Bytes> corpus;
    for (const auto& f : files) {
        std::ifstream in(f, std::ios::binary);
        corpus.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(corpus.back().data(), corpus.back().size());
    }
    if (corpus.empty()) corpus.emplace_back();
    std::mt19937_64 rng(seed);
    for (long i = 0; i < runs; ++i) {
        Bytes b = corpus[rng() % corpus.size()];
        const int rounds = 1 + static_cast<int>(rng() % 4);
        for (int r = 0; r < rounds; ++r) mutate(b, corpus, rng);
        LLVMFuzzerTestOneInput(b.data(), b.size());
    }
    std::printf("%zu seed inputs and %ld mutations ran without a fault\n", files.size(), runs);
    return 0;
}
