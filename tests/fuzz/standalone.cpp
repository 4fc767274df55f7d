// Runs a fuzz target without libFuzzer: standalone CORPUS-DIRECTORY. Every seed, then a fixed number of
// inputs that a fixed-seed generator makes of them. For the short run among the tests.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr int generated_inputs = 2000;

std::vector<Bytes> read_seeds(const char* directory) {
    std::set<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        paths.insert(entry.path());
    }
    std::vector<Bytes> seeds;
    for (const auto& path : paths) {
        std::ifstream file(path, std::ios::binary);
        seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return seeds;
}

Bytes mutated(Bytes bytes, std::mt19937& random) {
    const unsigned int changes = 1 + random() % 8;
    for (unsigned int i = 0; i < changes; ++i) {
        const std::size_t at = bytes.empty() ? 0 : random() % bytes.size();
        const auto value = static_cast<std::uint8_t>(random());
        switch (random() % 4) {
            case 0:
                bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), 1 + random() % 16, value);
                break;
            case 1:
                bytes.resize(at);
                break;
            default:
                if (!bytes.empty()) {
                    bytes[at] = value;
                }
                break;
        }
    }
    return bytes;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("standalone: one argument, the directory of the seeds\n", stderr);
        return 2;
    }
    const std::vector<Bytes> seeds = read_seeds(argv[1]);
    if (seeds.empty()) {
        std::fprintf(stderr, "standalone: no seeds in %s\n", argv[1]);
        return 2;
    }
    for (const Bytes& seed : seeds) {
        LLVMFuzzerTestOneInput(seed.data(), seed.size());
    }
    std::mt19937 random(20);
    for (int i = 0; i < generated_inputs; ++i) {
        const Bytes input = mutated(seeds[random() % seeds.size()], random);
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    return 0;
}
