// Runs a fuzz target where there is no libFuzzer.
//
//     TARGET FILE|FOLDER...           each file once, as libFuzzer would replay it
//     TARGET --random COUNT [SEED]    COUNT inputs of random bytes and length

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

namespace fs = std::filesystem;

void replay(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

std::size_t replayAll(const fs::path& place) {
    if (!fs::is_directory(place)) {
        replay(place);
        return 1;
    }
    std::size_t count = 0;
    for (const auto& entry : fs::recursive_directory_iterator(place)) {
        if (!entry.is_regular_file()) continue;
        replay(entry.path());
        ++count;
    }
    return count;
}

void runRandom(std::uint64_t count, std::uint64_t seed) {
    constexpr std::size_t kShortest = 8;
    constexpr std::size_t kLongest = 72;
    std::mt19937_64 random(seed);
    std::vector<std::uint8_t> bytes;
    for (std::uint64_t i = 0; i < count; ++i) {
        bytes.resize(kShortest + random() % (kLongest - kShortest));
        std::generate(bytes.begin(), bytes.end(), std::ref(random));
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() >= 2 && arguments[0] == "--random") {
        const std::uint64_t seed = arguments.size() > 2 ? std::stoull(arguments[2]) : 1;
        runRandom(std::stoull(arguments[1]), seed);
        std::printf("%s random inputs of seed %llu\n", arguments[1].c_str(),
                    static_cast<unsigned long long>(seed));
        return 0;
    }
    std::size_t count = 0;
    for (const std::string& argument : arguments) {
        count += replayAll(argument);
    }
    std::printf("%zu files replayed\n", count);
    return count == 0 ? 2 : 0;
}
