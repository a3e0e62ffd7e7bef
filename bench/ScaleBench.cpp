// Costs that must not grow faster than the size of the task. Each case is run with one size, and
// with a tenth of that for comparison.

#include "bench/BenchFiles.hpp"
#include "bench/Cases.hpp"

#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <opc/Package.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

using namespace bench;
using opc::interfaces::OpenMode;
using opc::model::ContentType;
using opc::model::Package;
using opc::model::PartName;
namespace fs = std::filesystem;

std::u16string numbered(const std::u16string& stem, std::size_t number) {
    const std::string digits = std::to_string(number);
    return stem + std::u16string(digits.begin(), digits.end());
}

fs::path fileOf(const std::string& kind, std::size_t count) {
    return folder() / (kind + "-" + std::to_string(count) + ".kvpkg");
}

// Runs `work` on an open package and saves it.
void change(const fs::path& file, OpenMode mode, const std::function<void(Package&)>& work) {
    const opc::zippackage::ZipPhysicalPackage zip(text(file), true);
    Package package(zip);
    package.open(mode);
    work(package);
    package.close();
}

void writeParts(Package& package, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        auto part = package.createPart(PartName(numbered(u"/parts/part", i) + u".bin"),
                                       ContentType(u"application/octet-stream"),
                                       opc::model::StandardPartInfo(1, 0));
        const auto stream = part.getOutputStream();
        stream->write(std::as_bytes(std::span("some bytes")));
        stream->flush();
    }
}

void createParts(benchmark::State& state, std::size_t count) {
    const fs::path file = fileOf("parts", count);
    measure(state, [&] {
        change(file, OpenMode::Create, [&](Package& package) { writeParts(package, count); });
    });
}

void rewriteParts(benchmark::State& state, std::size_t count) {
    const fs::path file = fileOf("rewritten", count);
    change(file, OpenMode::Create, [&](Package& package) { writeParts(package, count); });
    measure(state, [&] {
        change(file, OpenMode::Edit, [&](Package& package) {
            for (auto& part : package.getParts()) {
                package.deletePart(part.getName());
            }
            writeParts(package, count);
        });
    });
}

void createAndDeleteRelationships(benchmark::State& state, std::size_t count) {
    const fs::path file = fileOf("relationships", count);
    measure(state, [&] {
        change(file, OpenMode::Create, [&](Package& package) {
            for (std::size_t i = 0; i < count; ++i)
                package.createInternalRelationship(u"urn:type", opc::model::URI(u"/a"), u"");
        });
        change(file, OpenMode::Edit, [&](Package& package) {
            for (const auto& each : package.getRelationships())
                package.deleteRelationship(each.getID());
        });
    });
}

void writeAndReadLists(benchmark::State& state, std::size_t count) {
    const fs::path app = fileOf("lists", count);
    fs::copy_file(packagedApp(kKiB), app, fs::copy_options::overwrite_existing);
    std::vector<std::u16string> products;
    for (std::size_t i = 0; i < count; ++i)
        products.push_back(numbered(u"Product ", i));
    appserialization::AppMetadata metadata;
    metadata.setRequiredProducts(products);
    measure(state, [&] {
        appserialization::AppFileWriter writer(text(app), false);
        writer.setAppMetadata(metadata);
        writer.close();
        benchmark::DoNotOptimize(appserialization::AppFileReader(text(app)).getAppMetadata());
    });
}

void packAndUnpack(benchmark::State& state, std::uint64_t size) {
    const fs::path model = compressibleFile(size);
    const fs::path app = fileOf("bytes", size);
    measure(state, [&] {
        appserialization::AppFileWriter writer(text(app), true);
        writer.setAppModelFromFile(text(model));
        writer.setAppMetadata({});
        writer.setKORVALCodeText(u"x");
        writer.close();
        appserialization::AppFileReader(text(app)).copyAppDataToTempFile(
            text(folder() / "bytes.kvd"));
    });
}

void readTextAppLists(benchmark::State& state, std::size_t count) {
    const fs::path app = folder() / ("lists-" + std::to_string(count) + ".k");
    std::ofstream out(app);
    out << "x = 1;\n%[app:internalData]\n%{\n<RequiredProducts>";
    for (std::size_t i = 0; i < count; ++i)
        out << "<Product>Product " << i << "</Product>";
    out << "</RequiredProducts>\n%}\n";
    out.close();
    measure(state, [&] {
        benchmark::DoNotOptimize(appserialization::KAppMetadataReader(text(app)).readMetadata());
    });
}

// More than 10, because sorted tables get deeper and caches miss more often. A quadratic cost would
// give 100.
constexpr double kTenfold = 15;

void add(const std::string& name, void (*body)(benchmark::State&, std::size_t), std::size_t size) {
    Case(name, [=](auto& state) {
        body(state, size);
    }).against("a tenth", kTenfold, [=](auto& state) { body(state, size / 10); });
}

const bool registered =
    (add("create 20,000 parts", createParts, 20'000),
     add("delete and create 20,000 parts", rewriteParts, 20'000),
     add("create, delete 100,000 relationships", createAndDeleteRelationships, 100'000),
     add("write and read 100,000 list items", writeAndReadLists, 100'000),
     add("read 100,000 list items of a text app", readTextAppLists, 100'000),
     add("pack and unpack 500 MiB", packAndUnpack, 500 * kMiB), true);

}  // namespace
