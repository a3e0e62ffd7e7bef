// Runs a fuzz target without libFuzzer: TARGET FILE|FOLDER... replays each file once.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "tests/support/TemporaryDirectory.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace fs = std::filesystem;

static std::size_t replay(const fs::path& place) {
    std::size_t count = 0;
    if (fs::is_directory(place)) {
        for (const auto& entry : fs::directory_iterator(place))
            count += replay(entry.path());
        return count;
    }
    const std::string bytes = test_support::readFile(place);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return 1;
}

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i)
        count += replay(argv[i]);
    std::printf("%zu files replayed\n", count);
    return count == 0 ? 2 : 0;
}
