#include "bench/BenchFiles.hpp"

#include <appserialization/AppFileWriter.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

namespace fs = std::filesystem;

namespace {

using Fill = std::function<void(std::vector<std::uint64_t>& words, std::uint64_t firstWord)>;

fs::path makeFile(const std::string& name, std::uint64_t size, const Fill& fill) {
    const fs::path path = folder() / (name + "-" + std::to_string(size) + ".kvd");
    if (fs::exists(path)) return path;
    std::ofstream out(path, std::ios::binary);
    std::vector<std::uint64_t> words(kMiB / sizeof(std::uint64_t));
    for (std::uint64_t done = 0; done < size; done += kMiB) {
        fill(words, done / sizeof(std::uint64_t));
        out.write(reinterpret_cast<const char*>(words.data()),
                  static_cast<std::streamsize>(std::min(kMiB, size - done)));
    }
    out.close();
    if (!out) throw fs::filesystem_error("cannot write", path, {});
    return path;
}

}  // namespace

const fs::path& folder() {
    static const fs::path path = [] {
        const char* const given = std::getenv("QZ_BENCH_DIR");
        if (!given) throw std::runtime_error("QZ_BENCH_DIR is not set; run scripts/bench");
        return fs::path(given);
    }();
    return path;
}

const fs::path& reflinkFolder() {
    static const fs::path path = [] {
        const char* const given = std::getenv("QZ_BENCH_REFLINK_DIR");
        return given ? fs::path(given) : fs::path();
    }();
    return path;
}

fs::path compressibleFile(std::uint64_t size) {
    std::mt19937_64 random(1);
    return makeFile("model", size, [&](std::vector<std::uint64_t>& words, std::uint64_t first) {
        for (std::size_t i = 0; i < words.size(); ++i) {
            const double signal = std::sin(static_cast<double>(first + i) * 1e-3);
            std::memcpy(&words[i], &signal, sizeof signal);
            words[i] = (words[i] & ~0xffffffffull) | (random() & 0xff00000000ull) >> 16;
        }
    });
}

fs::path randomFile(std::uint64_t size) {
    std::mt19937_64 random(2);
    return makeFile("random", size, [&](std::vector<std::uint64_t>& words, std::uint64_t) {
        std::generate(words.begin(), words.end(), std::ref(random));
    });
}

fs::path packagedApp(std::uint64_t modelSize) {
    const fs::path path = folder() / ("app-" + std::to_string(modelSize) + ".kvpkg");
    if (fs::exists(path)) return path;
    appserialization::AppMetadata metadata;
    metadata.setName(u"Benchmark");
    metadata.setAuthor(u"Benchmark");
    metadata.setRequiredProducts({u"Base", u"Signal", u"Plot"});
    appserialization::AppFileWriter writer(text(path), true);
    writer.setAppModelFromFile(text(compressibleFile(modelSize)));
    writer.setAppMetadata(metadata);
    writer.setAppScreenshot(picture(), u"png");
    writer.setKORVALCodeText(std::u16string(8 * kKiB, u'x'));
    writer.close();
    return path;
}

std::vector<std::uint8_t> picture() {
    std::mt19937 random(3);
    std::vector<std::uint8_t> bytes(20 * kKiB);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
    return bytes;
}

std::u16string text(const fs::path& path) {
    return path.u16string();
}

}  // namespace bench
