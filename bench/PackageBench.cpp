#include "bench/BenchFiles.hpp"

#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <appserialization/KVPKGMetadataReader.hpp>

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using namespace bench;
namespace fs = std::filesystem;

// --- open a packaged app and read its metadata ----------------------------------------------------

void openAndReadMetadata(benchmark::State& state, std::uint64_t modelSize) {
    const std::u16string file = text(packagedApp(modelSize));
    const PeakMemory memory;
    for (auto _ : state) {
        const appserialization::KVPKGMetadataReader reader(file);
        benchmark::DoNotOptimize(reader.readMetadata());
    }
    memory.report(state);
}

// --- pack a model ---------------------------------------------------------------------------------

void pack(benchmark::State& state, const fs::path& model) {
    const std::u16string target = text(folder() / "packed.kvpkg");
    const PeakMemory memory;
    for (auto _ : state) {
        appserialization::AppFileWriter writer(target, true);
        writer.setAppModelFromFile(text(model));
        writer.close();
    }
    memory.report(state);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(fs::file_size(model)));
}

// Deflates a file with zlib at level 6 and writes nothing: the least that a writer on zlib costs.
void deflateWithZlib(benchmark::State& state, const fs::path& model) {
    std::vector<unsigned char> input(kMiB), output(kMiB);
    for (auto _ : state) {
        z_stream stream{};
        deflateInit2(&stream, 6, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
        std::ifstream file(model, std::ios::binary);
        while (file.read(reinterpret_cast<char*>(input.data()),
                         static_cast<std::streamsize>(input.size())) ||
               file.gcount() > 0) {
            stream.next_in = input.data();
            stream.avail_in = static_cast<uInt>(file.gcount());
            do {
                stream.next_out = output.data();
                stream.avail_out = static_cast<uInt>(output.size());
                deflate(&stream, Z_NO_FLUSH);
            } while (stream.avail_out == 0);
        }
        deflateEnd(&stream);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(fs::file_size(model)));
}

void copyDurably(benchmark::State& state, const fs::path& file) {
    const std::string copy = (folder() / "copy.bin").string();
    for (auto _ : state) {
        run(state, "rm -f " + copy + " && dd if=" + file.string() + " of=" + copy +
                       " bs=1M conv=fsync status=none");
    }
}

// --- edit the metadata of a large app ---------------------------------------------------------------

void editMetadata(benchmark::State& state, std::uint64_t modelSize) {
    const std::u16string file = text(packagedApp(modelSize));
    int round = 0;
    const PeakMemory memory;
    for (auto _ : state) {
        appserialization::AppMetadata metadata;
        metadata.setDescription(u"round " +
                                std::u16string(1, static_cast<char16_t>(u'a' + round++ % 26)));
        appserialization::AppFileWriter writer(file, false);
        writer.setAppMetadata(metadata);
        writer.close();
    }
    memory.report(state);
}

void copyAndSync(benchmark::State& state, std::uint64_t modelSize) {
    const std::string file = packagedApp(modelSize).string();
    const std::string copy = (folder() / "copy.kvpkg").string();
    for (auto _ : state) {
        run(state,
            "rm -f " + copy + " && cp --reflink=auto " + file + " " + copy + " && sync " + copy);
    }
}

// --- unpack the model ---------------------------------------------------------------------------------

void unpack(benchmark::State& state, std::uint64_t modelSize) {
    const std::u16string file = text(packagedApp(modelSize));
    const std::u16string target = text(folder() / "unpacked.kvd");
    const PeakMemory memory;
    for (auto _ : state) {
        appserialization::AppFileReader(file).copyAppDataToTempFile(target);
    }
    memory.report(state);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(modelSize));
}

void unzipToFile(benchmark::State& state, std::uint64_t modelSize) {
    const std::string file = packagedApp(modelSize).string();
    for (auto _ : state) {
        run(state, "unzip -p " + file + " lumenforge/appModel.kvd > " +
                       (folder() / "unzipped.kvd").string());
    }
}

void registerAll() {
    const auto add = [](const char* name, auto function) {
        benchmark::RegisterBenchmark(name, function)->UseRealTime()->Unit(benchmark::kMillisecond);
    };
    add("metadata of a 1 GiB app/qz", [](auto& state) { openAndReadMetadata(state, kGiB); });
    add("metadata of a 1 GiB app/1 KiB app", [](auto& state) { openAndReadMetadata(state, kKiB); });
    add("pack 256 MiB compressible/qz",
        [](auto& state) { pack(state, compressibleFile(256 * kMiB)); });
    add("pack 256 MiB compressible/zlib level 6",
        [](auto& state) { deflateWithZlib(state, compressibleFile(256 * kMiB)); });
    add("pack 1 GiB incompressible/qz", [](auto& state) { pack(state, randomFile(kGiB)); });
    add("pack 1 GiB incompressible/dd conv=fsync",
        [](auto& state) { copyDurably(state, randomFile(kGiB)); });
    add("edit metadata of a 1 GiB app/qz", [](auto& state) { editMetadata(state, kGiB); });
    add("edit metadata of a 1 GiB app/cp and sync", [](auto& state) { copyAndSync(state, kGiB); });
    add("unpack a 1 GiB model/qz", [](auto& state) { unpack(state, kGiB); });
    add("unpack a 1 GiB model/unzip -p", [](auto& state) { unzipToFile(state, kGiB); });
}

const bool registered = (registerAll(), true);

}  // namespace
