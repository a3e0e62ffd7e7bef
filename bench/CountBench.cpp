// How cost grows with the number of parts, items, relationships or lines.

#include "bench/BenchFiles.hpp"
#include "bench/Cases.hpp"

#include <appserialization/AppFileWriter.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <appserialization/KVPKGMetadataReader.hpp>
#include <opc/Package.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

// Costs that grow with a count. The time for one part (relationship, item) in a file of many is
// compared with the time for one in a file of a tenth as many.

namespace {

using namespace bench;
using appserialization::AppMetadata;
using appserialization::ustring;
namespace fs = std::filesystem;
namespace model = opc::model;

// What no longer fits into the processor's caches takes up to twice as long. Ten times as long
// would mean that the cost is quadratic.
constexpr double kGoal = 2;

ustring numbered(const char16_t* before, std::size_t number, const char16_t* behind) {
    const std::string digits = std::to_string(number);
    return before + ustring(digits.begin(), digits.end()) + behind;
}

fs::path fileOf(const std::string& kind, std::size_t count) {
    return folder() / (kind + "-" + std::to_string(count) + ".kvpkg");
}

void addParts(model::Package& package, std::size_t count) {
    const model::ContentType type(u"text/plain");
    for (std::size_t i = 0; i < count; ++i) {
        const model::PartName name(ustring(numbered(u"/notes/", i, u".txt")));
        package.createPart(name, type, model::StandardPartInfo(1, 0));
    }
}

void addRelationships(model::Package& package, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        package.createInternalRelationship(u"http://example.com/note",
                                           model::URI(numbered(u"/notes/", i, u".txt")), u"");
    }
}

using Change = void (*)(model::Package& package, std::size_t count);

// Adds to a copy of a small app and saves it.
void save(const fs::path& file, Change change, std::size_t count) {
    fs::copy_file(packagedApp(kKiB), file, fs::copy_options::overwrite_existing);
    const opc::zippackage::ZipPhysicalPackage zip(fl::filesystem::path(text(file)), true);
    model::Package package(zip);
    package.open(opc::interfaces::OpenMode::Edit);
    change(package, count);
    package.close();
}

AppMetadata metadataWithItems(std::size_t count) {
    std::vector<ustring> items;
    for (std::size_t i = 0; i < count; ++i)
        items.push_back(numbered(u"component", i, u""));
    AppMetadata metadata;
    metadata.setUserComponents(items);
    return metadata;
}

void setMetadata(const fs::path& file, const AppMetadata& metadata) {
    fs::copy_file(packagedApp(kKiB), file, fs::copy_options::overwrite_existing);
    appserialization::AppFileWriter writer(text(file), false);
    writer.setAppMetadata(metadata);
    writer.close();
}

void readEach(benchmark::State& state, const fs::path& file, std::size_t count) {
    measureEach(state, count, [name = text(file)] {
        benchmark::DoNotOptimize(appserialization::KVPKGMetadataReader(name).readMetadata());
    });
}

// --- cases, each for a given count ---------------------------------------------------------------

void openParts(benchmark::State& state, std::size_t count) {
    const fs::path file = fileOf("parts", count);
    save(file, addParts, count);
    readEach(state, file, count);
}

void openRelationships(benchmark::State& state, std::size_t count) {
    const fs::path file = fileOf("relationships", count);
    save(file, addRelationships, count);
    readEach(state, file, count);
}

void readItems(benchmark::State& state, std::size_t count) {
    const fs::path file = fileOf("items", count);
    setMetadata(file, metadataWithItems(count));
    readEach(state, file, count);
}

void readTextItems(benchmark::State& state, std::size_t count) {
    const fs::path file = folder() / ("items-" + std::to_string(count) + ".k");
    std::ofstream out(file);
    out << "%[app:internalData]\n%{\n<UserComponents>\n";
    for (std::size_t i = 0; i < count; ++i)
        out << "<Component>component" << i << "</Component>\n";
    out << "</UserComponents>\n%}\n";
    out.close();
    measureEach(state, count, [name = text(file)] {
        benchmark::DoNotOptimize(appserialization::KAppMetadataReader(name).readMetadata());
    });
}

void saveParts(benchmark::State& state, std::size_t count) {
    measureEach(state, count, [&] { save(fileOf("new-parts", count), addParts, count); });
}

void saveRelationships(benchmark::State& state, std::size_t count) {
    measureEach(state, count,
                [&] { save(fileOf("new-relationships", count), addRelationships, count); });
}

void writeItems(benchmark::State& state, std::size_t count) {
    const AppMetadata metadata = metadataWithItems(count);
    measureEach(state, count, [&] { setMetadata(fileOf("new-items", count), metadata); });
}

void registerAll() {
    const auto add = [](const char* name, auto body) {
        Case(name, [body](auto& state) {
            body(state, 20'000);
        }).against("of a tenth as many", kGoal, [body](auto& state) { body(state, 2'000); });
    };
    add("open, each of 20,000 parts", openParts);
    add("open, each of 20,000 relationships", openRelationships);
    add("read, each of 20,000 list items", readItems);
    add("read .k, each of 20,000 list items", readTextItems);
    add("save, each of 20,000 new parts", saveParts);
    add("save, each of 20,000 relationships", saveRelationships);
    add("save, each of 20,000 list items", writeItems);
}

const bool registered = (registerAll(), true);

}  // namespace
