// Reading metadata of packaged apps, and opening packages of many parts, next to python3's zipfile.

#include "bench/BenchFiles.hpp"
#include "bench/Cases.hpp"

#include <appserialization/KVPKGMetadataReader.hpp>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

// Opening a packaged app, reading its metadata and closing it again.

namespace {

using namespace bench;
namespace fs = std::filesystem;

constexpr std::size_t kOtherParts = 5'000;

void openAndReadMetadata(const std::u16string& file) {
    const appserialization::KVPKGMetadataReader reader(file);
    benchmark::DoNotOptimize(reader.readMetadata());
}

void readPackage(benchmark::State& state, std::uint64_t modelSize) {
    const std::u16string file = text(packagedApp(modelSize));
    measureEach(state, 1, [&] { openAndReadMetadata(file); });
}

void readWithPython(benchmark::State& state) {
    measureItself(state, "python3 " BENCH_BASELINES "/read_metadata.py " +
                             packagedApp(kKiB).string() + " 300");
}

// The time includes that for the few parts of every app.
void readManyParts(benchmark::State& state) {
    const fs::path file = folder() / "many-parts.kvpkg";
    run(state, "python3 " BENCH_BASELINES "/add_parts.py " + packagedApp(kKiB).string() + " " +
                   std::to_string(kOtherParts) + " " + file.string());
    measureEach(state, kOtherParts, [name = text(file)] { openAndReadMetadata(name); });
}

void registerAll() {
    Case("metadata of a small app", [](auto& state) {
        readPackage(state, kKiB);
    }).against("python3 zipfile, etree", 0.25, readWithPython);
    Case("metadata of a 1 GiB app", [](auto& state) {
        readPackage(state, kGiB);
    }).against("a small app", 1.1, [](auto& state) { readPackage(state, kKiB); });
    Case("each of 5,000 other parts", readManyParts).against("(2 us)", 1, [](auto& state) {
        allow(state, 2e-6);
    });
}

const bool registered = (registerAll(), true);

}  // namespace
