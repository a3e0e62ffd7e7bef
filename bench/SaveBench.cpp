// Packing, unpacking and editing large apps: time next to other programs, bytes written, peak
// memory.

#include "bench/BenchFiles.hpp"
#include "bench/Cases.hpp"

#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>

#include <benchmark/benchmark.h>
#include <isa-l/crc.h>
#include <isa-l/igzip_lib.h>
#include <unistd.h>
#include <foundation/Threads.hpp>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace bench;
using appserialization::AppFileReader;
using appserialization::AppFileWriter;
namespace fs = std::filesystem;

fs::path removed(const fs::path& file) {
    fs::remove(file);
    return file;
}

// --- pack a model --------------------------------------------------------------------------------

void packModel(const fs::path& model, const fs::path& target) {
    AppFileWriter writer(text(target), true);
    writer.setAppModelFromFile(text(model));
    writer.close();
}

void pack(benchmark::State& state, const fs::path& model) {
    const fs::path target = folder() / "packed.kvpkg";
    measure(state, [&] { packModel(model, target); });
    fs::remove(target);
}

void packWithZip(benchmark::State& state, const fs::path& model) {
    const fs::path target = folder() / "packed.zip";
    measure(state,
            [&] { run(state, "zip -6 -q -j " + removed(target).string() + " " + model.string()); });
    fs::remove(target);
}

void packWithIgzip(benchmark::State& state, const fs::path& model) {
    const fs::path target = folder() / "packed.gz";
    measure(state, [&] {
        run(state, "igzip -1 -q -f -o " + removed(target).string() + " " + model.string() +
                       " && sync " + target.string());
    });
    fs::remove(target);
}

// The least that a writer with one thread has to do: deflate the content and compute its CRC.
// Returns the deflated size.
std::uint64_t deflate(const std::vector<std::uint8_t>& content) {
    std::vector<std::uint8_t> output(256 * kKiB), levelBuffer(ISAL_DEF_LVL1_DEFAULT);
    isal_zstream stream;
    isal_deflate_init(&stream);
    stream.level = 1;
    stream.level_buf = levelBuffer.data();
    stream.level_buf_size = static_cast<std::uint32_t>(levelBuffer.size());
    stream.end_of_stream = 1;
    stream.next_in = const_cast<std::uint8_t*>(content.data());
    stream.avail_in = static_cast<std::uint32_t>(content.size());
    std::uint64_t size = 0;
    do {
        stream.next_out = output.data();
        stream.avail_out = static_cast<std::uint32_t>(output.size());
        isal_deflate(&stream);
        size += output.size() - stream.avail_out;
    } while (stream.avail_out == 0);
    benchmark::DoNotOptimize(crc32_gzip_refl(0, content.data(), content.size()));
    return size;
}

std::vector<std::uint8_t> contentOf(const fs::path& file) {
    std::vector<std::uint8_t> content(fs::file_size(file));
    std::ifstream(file, std::ios::binary)
        .read(reinterpret_cast<char*>(content.data()),
              static_cast<std::streamsize>(content.size()));
    return content;
}

void deflateInMemory(benchmark::State& state, const fs::path& model) {
    const std::vector<std::uint8_t> content = contentOf(model);
    measure(state, [&] { deflate(content); });
}

void sizeOfOneStream(benchmark::State& state, const fs::path& model) {
    std::uint64_t size = 0;
    for (auto _ : state)
        size = deflate(contentOf(model));
    reportAmount(state, size);
}

void copyDurably(benchmark::State& state, const fs::path& file) {
    const fs::path copy = folder() / "copy.bin";
    measure(state, [&] {
        run(state, "dd if=" + file.string() + " of=" + removed(copy).string() +
                       " bs=1M conv=fsync status=none");
    });
    fs::remove(copy);
}

// --- edit a large app ----------------------------------------------------------------------------

void editMetadata(const fs::path& app) {
    static int round = 0;
    appserialization::AppMetadata metadata;
    metadata.setDescription(u"round " +
                            std::u16string(1, static_cast<char16_t>(u'a' + round++ % 26)));
    AppFileWriter writer(text(app), false);
    writer.setAppMetadata(metadata);
    writer.close();
}

void editScreenshot(const fs::path& app) {
    AppFileWriter writer(text(app), false);
    writer.setAppScreenshot(picture(), u"png");
    writer.close();
}

void edit(benchmark::State& state, const fs::path& app, void (*change)(const fs::path&)) {
    measure(state, [&] { change(app); });
}

void copyAndSync(benchmark::State& state, const fs::path& app) {
    const std::string copy = (folder() / "copy.kvpkg").string();
    measure(state, [&] {
        run(state, "rm -f " + copy + " && cp --reflink=auto " + app.string() + " " + copy +
                       " && sync " + copy);
    });
    fs::remove(copy);
}

// A copy of the app on the file system whose files can share blocks.
fs::path onReflinks(std::uint64_t modelSize) {
    const fs::path source = packagedApp(modelSize);
    const fs::path copy = reflinkFolder() / source.filename();
    if (!fs::exists(copy)) fs::copy_file(source, copy);
    ::sync();  // sharing blocks would wait until they are written
    return copy;
}

// --- unpack the model ----------------------------------------------------------------------------

// The app as another program would have packed it, which keeps no table of slices.
const fs::path& appPackedWithZip() {
    static const fs::path app = [] {
        const std::string whole = packagedApp(kGiB).string();
        fs::path packed = folder() / "app-zip.kvpkg";
        const std::string items = (folder() / "items").string();
        if (!fs::exists(packed) &&
            std::system(("unzip -q " + whole + " -d " + items + " && cd " + items +
                         " && zip -6 -q -X -D -r " + packed.string() + " . && rm -r " + items)
                            .c_str()) != 0) {
            throw std::runtime_error("cannot pack the items of " + whole + " with zip");
        }
        return packed;
    }();
    return app;
}

void unpack(benchmark::State& state, const fs::path& app) {
    const fs::path target = folder() / "unpacked.kvd";
    measure(state, [&] { AppFileReader(text(app)).copyAppDataToTempFile(text(removed(target))); });
    fs::remove(target);
}

void unzipToFile(benchmark::State& state, const fs::path& app) {
    const fs::path target = folder() / "unzipped.kvd";
    measure(state, [&] {
        run(state,
            "unzip -p " + app.string() + " lumenforge/appModel.kvd > " + removed(target).string());
    });
    fs::remove(target);
}

// --- bytes written -------------------------------------------------------------------------------

void setCode(AppFileWriter& writer) {
    writer.setKORVALCodeText(std::u16string(8 * kKiB, u'x'));
}

void setRest(AppFileWriter& writer, const fs::path& model) {
    appserialization::AppMetadata metadata;
    metadata.setName(u"Benchmark");
    writer.setAppMetadata(metadata);
    writer.setAppScreenshot(picture(), u"png");
    writer.setAppModelFromFile(text(model));
}

void writtenBySession(benchmark::State& state, bool codeFirst) {
    const fs::path model = compressibleFile(kGiB / 4);
    const fs::path target = removed(folder() / "session.kvpkg");
    const WrittenBytes written;
    for (auto _ : state) {
        AppFileWriter writer(text(target), true);
        if (codeFirst) setCode(writer);
        setRest(writer, model);
        if (!codeFirst) setCode(writer);
        writer.close();
    }
    reportAmount(state, written.count() / static_cast<std::uint64_t>(state.iterations()));
    fs::remove(target);
}

void writtenByTool(benchmark::State& state) {
    const fs::path app = packagedApp(kGiB / 4);
    const fs::path code = folder() / "code.k";
    const WrittenBytes written;
    for (auto _ : state) {
        std::ofstream(code) << "x = " << state.iterations() << ";\n";
        run(state, std::string(BENCH_QZAPP) + " edit " + app.string() + " --code " + code.string() +
                       " --set Summary=edited >/dev/null");
    }
    reportAmount(state, written.count() / static_cast<std::uint64_t>(state.iterations()));
}

void sizeOfFile(benchmark::State& state, const fs::path& file) {
    for (auto _ : state) {
    }
    reportAmount(state, fs::file_size(file));
}

// --- memory --------------------------------------------------------------------------------------

// A file that is almost all hole, so it takes no room. Its first bytes decide whether a writer
// deflates it or stores it; a package that stores it has its size.
fs::path sparseFile(std::uint64_t size, bool shrinks) {
    const fs::path file = folder() / (shrinks ? "zeros.kvd" : "sparse.kvd");
    if (fs::exists(file)) return file;
    fs::copy_file(shrinks ? compressibleFile(kMiB) : randomFile(kMiB), file);
    fs::resize_file(file, size);
    return file;
}

constexpr std::uint64_t kHuge = 4 * kGiB + kMiB;

const fs::path& hugeApp() {
    static const fs::path app = folder() / "huge.kvpkg";
    if (!fs::exists(app)) packModel(sparseFile(kHuge, false), app);
    return app;
}

constexpr unsigned kThreads = 2;

void memoryOf(benchmark::State& state, const std::function<void()>& prepare,
              const std::function<void()>& work) {
    prepare();
    foundation::threads::setLimit(kThreads);
    const Usage usage;
    for (auto _ : state)
        work();
    reportAmount(state, usage.peakMemory());
    foundation::threads::setLimit(0);
}

void allowance(benchmark::State& state) {
    for (auto _ : state) {
    }
    reportAmount(state, 16 * kMiB + kThreads * 4 * kMiB);
}

// -------------------------------------------------------------------------------------------------

void registerSaves() {
    Case("pack 1 GiB compressible", [](auto& state) { pack(state, compressibleFile(kGiB)); })
        .against("zip -6", 1.0 / 15,
                 [](auto& state) { packWithZip(state, compressibleFile(kGiB)); })
        .against("igzip -1 and sync", 0.7,
                 [](auto& state) { packWithIgzip(state, compressibleFile(kGiB)); })
        .against("ISA-L, CRC in memory", 0.8,
                 [](auto& state) { deflateInMemory(state, compressibleFile(kGiB)); });
    Case("pack 1 GiB incompressible", [](auto& state) {
        pack(state, randomFile(kGiB));
    }).against("dd conv=fsync", 1.3, [](auto& state) { copyDurably(state, randomFile(kGiB)); });
    Case("unpack a 1 GiB model", [](auto& state) {
        unpack(state, packagedApp(kGiB));
    }).against("unzip -p", 0.22, [](auto& state) { unzipToFile(state, packagedApp(kGiB)); });
    Case("unpack a 1 GiB model by zip -6", [](auto& state) {
        unpack(state, appPackedWithZip());
    }).against("unzip -p", 0.34, [](auto& state) { unzipToFile(state, appPackedWithZip()); });
    Case("edit metadata of a 1 GiB app", [](auto& state) {
        edit(state, packagedApp(kGiB), editMetadata);
    }).against("cp and sync", 1.2, [](auto& state) { copyAndSync(state, packagedApp(kGiB)); });
    Case("edit screenshot of a 1 GiB app", [](auto& state) {
        edit(state, packagedApp(kGiB), editScreenshot);
    }).against("cp and sync", 1.2, [](auto& state) { copyAndSync(state, packagedApp(kGiB)); });
    if (reflinkFolder().empty()) return;
    Case("edit metadata of 1 GiB, reflinks", [](auto& state) {
        edit(state, onReflinks(kGiB), editMetadata);
    }).against("1 KiB app", 1.2, [](auto& state) { edit(state, onReflinks(kKiB), editMetadata); });
}

void registerAmounts() {
    const auto size = [](auto& state) { sizeOfFile(state, packagedApp(kGiB / 4)); };
    Case("written: session, code first", [](auto& state) {
        writtenBySession(state, true);
    }).against("the file", 1.02, size);
    Case("written: session, code last", [](auto& state) {
        writtenBySession(state, false);
    }).against("the file", 2.02, size);
    Case("written: qzapp edit --code --set", writtenByTool).against("the file", 2.02, size);
    // A thousandth of the uncompressed size, which is twice the deflated one.
    Case("size of a 1 GiB model", [](auto& state) {
        sizeOfFile(state, packagedApp(kGiB));
    }).against("one ISA-L stream", 1.002, [](auto& state) {
        sizeOfOneStream(state, compressibleFile(kGiB));
    });
}

void registerMemory() {
    const fs::path packed = folder() / "packed.kvpkg";
    const fs::path unpacked = folder() / "unpacked.kvd";
    const auto add = [](const std::string& name, std::function<void()> prepare,
                        std::function<void()> work) {
        Case("memory: " + name, [prepare = std::move(prepare),
                                 work = std::move(work)](auto& state) {
            memoryOf(state, prepare, work);
        }).against("16 MiB, 4 a thread", 1, allowance);
    };
    add(
        "pack 4 GiB, deflated", [] { sparseFile(kHuge, true); },
        [packed] {
            packModel(sparseFile(kHuge, true), packed);
            fs::remove(packed);
        });
    add(
        "pack 4 GiB, stored", [] { sparseFile(kHuge, false); },
        [packed] {
            packModel(sparseFile(kHuge, false), packed);
            fs::remove(packed);
        });
    add("edit 4 GiB", hugeApp, [] { editMetadata(hugeApp()); });
    add("unpack 4 GiB", hugeApp, [unpacked] {
        AppFileReader(text(hugeApp())).copyAppDataToTempFile(text(unpacked));
        fs::remove(unpacked);
    });
}

const bool registered = (registerSaves(), registerAmounts(), registerMemory(), true);

}  // namespace
