// Salvages damaged packages.

#include <opc/Exception.hpp>
#include <opc/FoundPackage.hpp>
#include <opc/Streams.hpp>
#include <opc/ZipArchive.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/MemoryFiles.hpp"
#include "fuzz/PackageProgram.hpp"
#include "package/PartKinds.hpp"

namespace {

using fuzz::attempt;
using fuzz::require;
using opc::zip::ZipArchive;
using opc::zip::ZipItem;

constexpr const char* kFile = "app.kvpkg";
constexpr std::size_t kMostCopied = 1 << 12;

// A place where bytes of a file are lost, are put in, or stand in for others.
struct Damage {
    std::size_t at = 0, removed = 0, copiedFrom = 0, copied = 0;
    std::string inserted = {};
};

// Bytes in which nobody finds a record.
std::string drawNoise(fuzz::Input& input) {
    std::string noise(input.byte(), '\0');
    unsigned state = input.byte();
    for (char& c : noise)
        c = char((state = state * 1664525 + 1013904223) >> 24);
    return noise;
}

Damage drawDamage(fuzz::Input& input) {
    Damage damage{.at = input.number(2)};
    switch (input.below(5)) {
        case 0:
            damage.removed = std::string::npos;
            break;
        case 1:
            damage.removed = input.byte();
            break;
        case 2:
            damage.inserted = drawNoise(input);
            break;
        case 3:
            damage.inserted = drawNoise(input);
            damage.removed = damage.inserted.size();
            break;
        default:
            damage.copiedFrom = input.number(2);
            damage.copied = input.number(2) % kMostCopied;
            damage.removed = input.flag() ? damage.copied : 0;
    }
    return damage;
}

void apply(const Damage& damage, std::string& bytes) {
    if (bytes.empty()) return;
    const std::string copied = bytes.substr(damage.copiedFrom % bytes.size(), damage.copied);
    bytes.replace(damage.at % bytes.size(), damage.removed, damage.inserted + copied);
}

// As a program does that takes the file for a text.
void convertLineEnds(std::string& bytes) {
    for (std::size_t at = 0; (at = bytes.find('\n', at)) != std::string::npos; at += 2)
        bytes.insert(at, 1, '\r');
}

// A package with another one in an item, as a backup is.
std::string drawNest(fuzz::Input& input) {
    std::string inner = fuzz::drawPackage(input).bytes;
    test_support::BuiltZip outer = fuzz::drawPackage(input).zip;
    if (outer.items.empty()) return inner;
    test_support::BuiltItem& holder = outer.items[input.below(outer.items.size())];
    holder.content = std::move(inner);
    holder.method = 0;
    return outer.bytes();
}

// A file before and after it was damaged.
struct DrawnFile {
    std::string sound, damaged;
    // Whether so much was damaged that nothing may show whose content a name had.
    bool mayBeMixed = false;
};

DrawnFile drawDamagedFile(fuzz::Input& input) {
    if (input.startsWith("PK")) {
        const std::string bytes(input.rest());
        return {bytes, bytes};
    }
    std::vector<Damage> damages(input.below(4));
    for (Damage& damage : damages)
        damage = drawDamage(input);
    const bool isConverted = input.below(8) == 7, isNest = input.flag();
    const std::string sound = isNest ? drawNest(input) : fuzz::drawPackage(input).bytes;
    DrawnFile file{sound, sound, damages.size() + isConverted > 1};
    for (const Damage& damage : damages) {
        apply(damage, file.damaged);
        file.mayBeMixed |= isNest && damage.copied != 0;
    }
    if (isConverted) convertLineEnds(file.damaged);
    return file;
}

bool canBeRead(const ZipArchive& archive, const ZipItem& item) {
    return !fuzz::refuses<opc::Exception>([&] { archive.verify(item); });
}

void checkItems(const ZipArchive& archive, std::size_t fileSize) {
    std::set<std::string> names;
    std::uint64_t end = 0;
    for (const ZipItem& item : archive.items()) {
        require(canBeRead(archive, item), "what is kept is whole");
        require(names.insert(item.name).second, "no two items have one name");
        if (item.compressedSize == 0) continue;
        require(item.dataOffset >= end, "no two items share bytes");
        end = item.dataOffset + item.compressedSize;
        require(archive.isConverted() || end <= fileSize, "data are in the file");
    }
}

// The items of a package that can be opened, by name; nullopt for one that cannot be read.
using Contents = std::map<std::string, std::optional<std::pair<std::uint64_t, std::uint32_t>>>;

std::optional<Contents> contentsOf(const std::u16string& file) {
    return attempt<opc::Exception>([&] {
        const auto archive = ZipArchive::open(fl::filesystem::path(file));
        Contents contents;
        for (const ZipItem& item : archive->items()) {
            auto& content = contents[item.name];
            if (canBeRead(*archive, item)) content = {item.size, item.crc32};
        }
        return contents;
    });
}

// If one place of a package was damaged, whatever has a name of the package has its content.
void checkNothingIsMixed(const Contents& sound, const ZipArchive& salvaged) {
    for (const ZipItem& item : salvaged.items()) {
        const auto found = sound.find(item.name);
        if (found == sound.end() || !found->second) continue;
        require(*found->second == std::pair(item.size, item.crc32),
                "what is kept is the item's own");
    }
}

// If nothing was damaged, all is kept, but for items that cannot be read.
void checkAllIsKept(const Contents& sound, const ZipArchive& salvaged,
                    const std::vector<opc::zip::LostItem>& lost) {
    bool isWhole = true;
    for (const auto& [name, content] : sound) {
        isWhole &= content.has_value();
        require(!content || salvaged.find(name) != nullptr, "a whole item is kept");
    }
    require(!isWhole || lost.empty(), "of a whole file, nothing is lost");
}

void checkPackage(std::shared_ptr<const ZipArchive> archive) {
    const auto kinds = appserialization::layout::partKinds();
    const opc::model::FoundPackage package(std::move(archive), kinds);
    for (const opc::model::FoundItem& item : package.items) {
        require(item.fault.empty(), "what is kept can be read");
        const auto content = package.read(item, item.item->size);
        require(content && content->size() == item.item->size, "with the size that it says");
    }
    for (const opc::model::FoundItem* part : package.reachable())
        require(part->isPart(), "only parts are reached");
    package.derivedNames();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const DrawnFile drawn = drawDamagedFile(input);
    const auto sound = contentsOf(fuzz::memory::write(kFile, drawn.sound));
    const fl::filesystem::path file(fuzz::memory::write(kFile, drawn.damaged));
    std::vector<opc::zip::LostItem> lost;
    auto salvaged = ZipArchive::salvage(file, lost);
    checkItems(*salvaged, drawn.damaged.size());
    if (sound && !drawn.mayBeMixed) checkNothingIsMixed(*sound, *salvaged);
    if (sound && drawn.damaged == drawn.sound) checkAllIsKept(*sound, *salvaged, lost);
    checkPackage(std::move(salvaged));
    require(fuzz::memory::bytes(kFile) == drawn.damaged, "the file stays as it is");
    require(fuzz::memory::countOpen() == 0, "no file is left open");
    return 0;
}
