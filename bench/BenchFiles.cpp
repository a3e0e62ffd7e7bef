#include "bench/BenchFiles.hpp"

#include <appserialization/AppFileWriter.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace bench {

namespace fs = std::filesystem;

namespace {

class Folder {
public:
    Folder() {
        const char* const base = std::getenv("QZ_BENCH_DIR");
        std::string name = (base ? fs::path(base) : fs::temp_directory_path()) / "qz-bench-XXXXXX";
        if (!mkdtemp(name.data())) throw fs::filesystem_error("mkdtemp", name, {});
        path_ = name;
    }
    ~Folder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

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

std::uint64_t statusKiB(const std::string& key) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        std::uint64_t value = 0;
        if (word == key && status >> value) return value;
    }
    return 0;
}

}  // namespace

const fs::path& folder() {
    static const Folder instance;
    return instance.path();
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
    writer.setAppScreenshot(std::vector<std::uint8_t>(20 * kKiB, 0x5a), u"png");
    writer.setKORVALCodeText(std::u16string(8 * kKiB, u'x'));
    writer.close();
    return path;
}

void run(benchmark::State& state, const std::string& command) {
    if (std::system(command.c_str()) != 0) state.SkipWithError(("failed: " + command).c_str());
}

PeakMemory::PeakMemory() : before_(statusKiB("VmRSS:")) {
    std::ofstream("/proc/self/clear_refs") << "5";  // resets VmHWM
}

void PeakMemory::report(benchmark::State& state) const {
    const std::uint64_t peak = statusKiB("VmHWM:");
    state.counters["peakMiB"] = static_cast<double>(peak - std::min(before_, peak)) / 1024.0;
}

std::u16string text(const fs::path& path) {
    return path.u16string();
}

}  // namespace bench
