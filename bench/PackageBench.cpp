#include "bench/BenchFiles.hpp"
#include "bench/Cases.hpp"

#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>

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

// --- pack a model ---------------------------------------------------------------------------------

void pack(benchmark::State& state, const fs::path& model) {
    const std::u16string target = text(folder() / "packed.kvpkg");
    measure(state, [&] {
        appserialization::AppFileWriter writer(target, true);
        writer.setAppModelFromFile(text(model));
        writer.close();
    });
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(fs::file_size(model)));
}

// Deflates a file with zlib at level 6 and writes nothing: the least that a writer on zlib costs.
void deflateWithZlib(benchmark::State& state, const fs::path& model) {
    std::vector<unsigned char> input(kMiB), output(kMiB);
    measure(state, [&] {
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
    });
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(fs::file_size(model)));
}

void copyDurably(benchmark::State& state, const fs::path& file) {
    const std::string copy = (folder() / "copy.bin").string();
    measure(state, [&] {
        run(state, "rm -f " + copy + " && dd if=" + file.string() + " of=" + copy +
                       " bs=1M conv=fsync status=none");
    });
}

// --- edit the metadata of a large app ---------------------------------------------------------------

void editMetadata(benchmark::State& state, std::uint64_t modelSize) {
    const std::u16string file = text(packagedApp(modelSize));
    int round = 0;
    measure(state, [&] {
        appserialization::AppMetadata metadata;
        metadata.setDescription(u"round " +
                                std::u16string(1, static_cast<char16_t>(u'a' + round++ % 26)));
        appserialization::AppFileWriter writer(file, false);
        writer.setAppMetadata(metadata);
        writer.close();
    });
}

void copyAndSync(benchmark::State& state, std::uint64_t modelSize) {
    const std::string file = packagedApp(modelSize).string();
    const std::string copy = (folder() / "copy.kvpkg").string();
    measure(state, [&] {
        run(state,
            "rm -f " + copy + " && cp --reflink=auto " + file + " " + copy + " && sync " + copy);
    });
}

// --- unpack the model ---------------------------------------------------------------------------------

void unpack(benchmark::State& state, std::uint64_t modelSize) {
    const std::u16string file = text(packagedApp(modelSize));
    const std::u16string target = text(folder() / "unpacked.kvd");
    measure(state, [&] { appserialization::AppFileReader(file).copyAppDataToTempFile(target); });
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(modelSize));
}

void unzipToFile(benchmark::State& state, std::uint64_t modelSize) {
    const std::string file = packagedApp(modelSize).string();
    measure(state, [&] {
        run(state, "unzip -p " + file + " lumenforge/appModel.kvd > " +
                       (folder() / "unzipped.kvd").string());
    });
}

void registerAll() {
    Case("pack 1 GiB compressible", [](auto& state) {
        pack(state, compressibleFile(kGiB));
    }).against("zlib level 6", 1.0 / 15, [](auto& state) {
        deflateWithZlib(state, compressibleFile(kGiB));
    });
    Case("pack 1 GiB incompressible", [](auto& state) {
        pack(state, randomFile(kGiB));
    }).against("dd conv=fsync", 1.3, [](auto& state) { copyDurably(state, randomFile(kGiB)); });
    Case("edit metadata of a 1 GiB app", [](auto& state) {
        editMetadata(state, kGiB);
    }).against("cp and sync", 1.2, [](auto& state) { copyAndSync(state, kGiB); });
    Case("unpack a 1 GiB model", [](auto& state) {
        unpack(state, kGiB);
    }).against("unzip -p", 1.0 / 3, [](auto& state) { unzipToFile(state, kGiB); });
}

const bool registered = (registerAll(), true);

}  // namespace
