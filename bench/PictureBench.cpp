// What the pictures of a catalogue cost: indexing apps with a screenshot each, against scaling the
// screenshots.

#include <benchmark/benchmark.h>
#include <appserialization/AppFileWriter.hpp>
#include <appserialization/AppMetadata.hpp>
#include <foundation/Threads.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "bench/BenchFiles.hpp"
#include "bench/Cases.hpp"
#include "tools/qzapp/pictures/Decoders.hpp"
#include "tools/qzapp/pictures/Picture.hpp"
#include "tools/qzapp/pictures/PictureScaler.hpp"
#include "tools/qzapp/pictures/Raster.hpp"

namespace {

using namespace bench;
namespace fs = std::filesystem;
namespace pictures = qzapp::pictures;

constexpr std::size_t kApps = 300;
constexpr pictures::Size kScreen{1280, 800};

// A window with panels, curves and some noise: a PNG of a few hundred kilobytes.
std::string screenshot(std::uint32_t seed) {
    std::mt19937 random(seed);
    pictures::Raster raster(kScreen);
    for (std::uint32_t y = 0; y < kScreen.height; ++y) {
        for (std::uint32_t x = 0; x < kScreen.width; ++x) {
            std::uint8_t* const pixel = raster.row(y) + pictures::Raster::kChannels * x;
            const bool isPlot = x > 200 && y > 60 && (x * y + seed * 977) % 4001 < 900;
            const auto noise = isPlot ? random() & 31 : 0;
            pixel[0] = static_cast<std::uint8_t>(isPlot ? 40 + x / 8 + noise : 230);
            pixel[1] = static_cast<std::uint8_t>(isPlot ? 60 + y / 6 + noise : 232);
            pixel[2] = static_cast<std::uint8_t>(isPlot ? 90 + noise : 236 - seed % 16);
            pixel[3] = 255;
        }
    }
    return pictures::encodePng(raster).bytes;
}

// A folder with apps that have models of this size, and one with their screenshots.
struct Folders {
    fs::path apps, images;
};

Folders foldersOf(std::uint64_t modelSize) {
    const Folders folders{folder() / ("pictured-" + std::to_string(modelSize)),
                          folder() / "screenshots"};
    if (fs::exists(folders.apps)) return folders;
    fs::create_directories(folders.apps);
    fs::create_directories(folders.images);
    for (std::size_t i = 0; i < kApps; ++i) {
        const std::string image = screenshot(static_cast<std::uint32_t>(i));
        std::ofstream(folders.images / std::to_string(i), std::ios::binary) << image;
        appserialization::AppMetadata metadata;
        metadata.setName(u"Pictured");
        appserialization::AppFileWriter writer(text(folders.apps / (std::to_string(i) + ".kvpkg")),
                                               true);
        writer.setAppModelFromFile(text(compressibleFile(modelSize)));
        writer.setAppMetadata(metadata);
        writer.setAppScreenshot({image.begin(), image.end()}, u"png");
        writer.setKORVALCodeText(u"x = 1;");
        writer.close();
    }
    return folders;
}

void indexAll(benchmark::State& state, std::uint64_t modelSize) {
    const fs::path apps = foldersOf(modelSize).apps, database = apps.string() + ".db";
    measureEach(state, kApps, [&] {
        fs::remove(database);
        run(state, std::string(BENCH_QZAPP) + " index " + apps.string() + " -d " +
                       database.string() + " >/dev/null");
    });
}

void scaleAll(benchmark::State& state, std::uint64_t modelSize) {
    const fs::path images = foldersOf(modelSize).images;
    measureEach(state, kApps, [&] {
        pictures::PictureScaler scaler;
        foundation::threads::Pipeline pipeline;
        pipeline.slots = foundation::threads::limit() + 1;
        std::vector<std::size_t> numbers(pipeline.slots);
        std::size_t next = 0;
        pipeline.feed = [&](std::size_t slot) {
            numbers[slot] = next;
            return next++ < kApps;
        };
        pipeline.work = [&](std::size_t slot) {
            const fs::path path = images / std::to_string(numbers[slot]);
            std::string image(fs::file_size(path), '\0');
            std::ifstream(path, std::ios::binary)
                .read(image.data(), static_cast<std::streamsize>(image.size()));
            benchmark::DoNotOptimize(scaler.scale(image));
        };
        pipeline.take = [](std::size_t) {};
        pipeline.run();
    });
}

void registerAll() {
    for (const std::uint64_t size : {14 * kKiB, 500 * kKiB}) {
        Case("index with pictures, " + std::to_string(size / kKiB) + " KiB models",
             [=](auto& state) { indexAll(state, size); })
            .against("scaling alone", 1.2, [=](auto& state) { scaleAll(state, size); });
    }
}

const bool registered = (registerAll(), true);

}  // namespace
