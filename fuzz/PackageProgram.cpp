#include "fuzz/PackageProgram.hpp"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <vector>

#include "tests/support/AppPackage.hpp"

namespace fuzz {

using Item = test_support::BuiltItem;
using Zip = test_support::BuiltZip;

namespace {

constexpr std::size_t kMostItems = 24;
// Longer than any name in a zip file can be. Drawn rarely, because such inputs take most of the
// time.
constexpr std::size_t kLongest = std::size_t{64} << 10;
constexpr std::size_t kLong = std::size_t{2} << 10;

// Repeats a text as often as the input says, up to kLongest bytes in all.
std::string drawRepeated(const std::string& piece, Input& input) {
    const std::size_t doublings = input.below(16);
    const std::size_t limit = doublings == 15 ? kLongest : kLong;
    if (piece.empty()) return {};
    const std::size_t size =
        piece.size() * std::min(std::size_t{1} << doublings, limit / piece.size());
    std::string text = piece.substr(0, size);
    // Doubles the text, because adding one piece at a time took a tenth of an execution.
    while (text.size() < size)
        text.append(text, 0, size - text.size());
    return text;
}

std::vector<std::string> words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

std::uint64_t drawNumber(Input& input) {
    static constexpr std::uint64_t kEdges[] = {
        0, 0x7FFF, 0xFFFF, 0x10000, 0x7FFFFFFF, 0xFFFFFFFF, 0x100000000, ~std::uint64_t{0}};
    switch (input.below(3)) {
        case 0:
            return input.byte();
        case 1:
            return input.oneOf(kEdges);
        default:
            return input.number(4);
    }
}

std::uint64_t drawNear(Input& input, std::uint64_t number) {
    return input.flag() ? drawNumber(input) : number + input.byte() - 128;
}

// ---- Ways to break a record

using ItemBreak = void (*)(Item&, Input&);
constexpr ItemBreak kItemBreaks[] = {
    [](Item& item, Input& input) { item.method = std::uint16_t(input.below(10)); },
    [](Item& item, Input& input) { item.data = input.bytes(); },
    [](Item& item, Input& input) { item.flags = std::uint16_t(input.number(2)); },
    [](Item& item, Input& input) { item.crc = std::uint32_t(drawNumber(input)); },
    [](Item& item, Input& input) { item.size = drawNear(input, item.content.size()); },
    [](Item& item, Input& input) { item.compressedSize = drawNear(input, item.content.size()); },
    [](Item& item, Input& input) { item.offset = drawNumber(input); },
    [](Item& item, Input& input) { item.disk = std::uint16_t(drawNumber(input)); },
    [](Item& item, Input& input) { item.extra = input.bytes(); },
    [](Item& item, Input& input) {
        const auto identifier = std::uint16_t(input.number(2));
        item.extra += test_support::extraField(identifier, input.bytes());
    },
    [](Item& item, Input& input) { item.comment = input.bytes(); },
    [](Item& item, Input& input) { item.zip64 = input.flag(); },
    [](Item& item, Input& input) { item.localName = drawItemName(input); },
    [](Item& item, Input& input) { item.localMethod = std::uint16_t(input.below(10)); },
    [](Item& item, Input& input) { item.localFlags = std::uint16_t(input.number(2)); },
    [](Item& item, Input& input) { item.localCrc = std::uint32_t(drawNumber(input)); },
    [](Item& item, Input& input) {
        item.localSize = std::uint32_t(drawNear(input, item.content.size()));
    },
    [](Item& item, Input& input) { item.localCompressedSize = std::uint32_t(drawNumber(input)); },
    [](Item& item, Input& input) { item.localExtra = input.bytes(); },
    [](Item& item, Input& input) { item.localSignature = input.bytes(); },
    [](Item& item, Input& input) { item.descriptor = 12 + 4 * int(input.below(4)); },
    [](Item& item, Input& input) {
        item.descriptor = 12;
        item.descriptorBytes = input.bytes();
    },
    [](Item& item, Input& input) { item.before = input.bytes(); },
    [](Item& item, Input& input) { item.isListed = input.flag(); },
    [](Item& item, Input& input) { item.attributes = std::uint32_t(input.number(4)); },
    [](Item& item, Input&) { item.repeatsNumbers = true; },
};

using ZipBreak = void (*)(Zip&, Input&);
constexpr ZipBreak kZipBreaks[] = {
    [](Zip& zip, Input& input) { zip.comment = input.bytes(); },
    [](Zip& zip, Input& input) { zip.commentLength = std::uint16_t(drawNumber(input)); },
    [](Zip& zip, Input& input) { zip.behindItems = input.bytes(); },
    [](Zip& zip, Input& input) { zip.behindDirectory = input.bytes(); },
    [](Zip& zip, Input& input) { zip.behindEnd = input.bytes(); },
    [](Zip& zip, Input& input) { zip.count = std::uint16_t(drawNear(input, zip.items.size())); },
    [](Zip& zip, Input& input) { zip.countOnDisk = std::uint16_t(drawNumber(input)); },
    [](Zip& zip, Input& input) { zip.directorySize = std::uint32_t(drawNumber(input)); },
    [](Zip& zip, Input& input) { zip.directoryOffset = std::uint32_t(drawNumber(input)); },
    [](Zip& zip, Input& input) { zip.disk = std::uint16_t(drawNumber(input)); },
    [](Zip& zip, Input& input) { zip.isListedBackwards = input.flag(); },
    [](Zip& zip, Input& input) { zip.zip64 = input.flag(); },
    [](Zip& zip, Input& input) { zip.wideCount = drawNear(input, zip.items.size()); },
    [](Zip& zip, Input& input) { zip.wideSize = drawNumber(input); },
    [](Zip& zip, Input& input) { zip.wideOffset = drawNumber(input); },
    [](Zip& zip, Input& input) { zip.wideRecordSize = drawNear(input, 44); },
    [](Zip& zip, Input& input) { zip.locatedAt = drawNumber(input); },
    [](Zip& zip, Input& input) { zip.disks = std::uint32_t(drawNumber(input)); },
};

// ---- Ways to change what a package says

// Adds `entry` after the last one of a table, if the table still has its end tag.
void addEntry(Zip& zip, std::string_view itemName, std::string_view end, const std::string& entry) {
    for (Item& item : zip.items) {
        if (item.name == itemName && item.content.ends_with(end))
            item.content.insert(item.content.size() - end.size(), entry);
    }
}

void addRelationship(Zip& zip, Input& input) {
    static constexpr const char16_t* kTypes[] = {
        test_support::kModelType,
        test_support::kMetadataType,
        test_support::kScreenshotType,
        test_support::kCodeType,
        test_support::kThumbnailType,
        u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties",
        u"http://schemas.quorvane.com/package/2026/relationships/hostProperties",
        u"urn:other",
    };
    // These are separate statements because compilers differ in the order of evaluating operands.
    const std::u16string_view type = input.oneOf(kTypes);
    const std::string number = std::to_string(input.byte());
    const std::string slash = input.flag() ? "/" : "";
    const std::string target = slash + drawItemName(input);
    const bool isExternal = input.below(8) == 7;
    addEntry(zip, "_rels/.rels", "</Relationships>",
             "<Relationship Id=\"x" + number + "\" Type=\"" +
                 std::string(type.begin(), type.end()) + "\" Target=\"" + target +
                 (isExternal ? "\" TargetMode=\"External\"/>" : "\"/>"));
}

void addType(Zip& zip, Input& input) {
    const bool isOverride = input.flag();
    const std::string name = drawItemName(input);
    addEntry(zip, "[Content_Types].xml", "</Types>",
             isOverride ? "<Override PartName=\"/" + name + "\" ContentType=\"x/y\"/>"
                        : "<Default Extension=\"" + name.substr(name.rfind('.') + 1) +
                              "\" ContentType=\"x/z\"/>");
}

void changeText(Item& item, Input& input) {
    const std::size_t at = input.number(2) % (item.content.size() + 1);
    const std::size_t length = input.below(32);
    item.content.replace(at, length, input.bytes());
}

// Makes a name, a URI, a text, or a list of elements long.
void repeatText(Item& item, Input& input) {
    const std::size_t at = input.number(2) % (item.content.size() + 1);
    const std::string piece = item.content.substr(at, input.byte());
    item.content.insert(at, drawRepeated(piece, input));
}

void changeItems(Zip& zip, Input& input) {
    if (zip.items.empty() || (input.flag() && zip.items.size() < kMostItems)) {
        zip.items.push_back({.name = drawItemName(input),
                             .content = drawContent(input),
                             .method = std::uint16_t(input.flag() ? 8 : 0)});
        return;
    }
    const std::size_t index = input.below(zip.items.size());
    switch (input.below(4)) {
        case 0:
            zip.items.erase(zip.items.begin() + std::ptrdiff_t(index));
            break;
        case 1:
            std::swap(zip.items[index], zip.items[input.below(zip.items.size())]);
            break;
        case 2:
            zip.items[index].name = drawItemName(input);
            break;
        default:
            zip.items[index].content = drawContent(input);
    }
}

void changeStorage(Item& item, Input& input) {
    item.method = input.flag() ? 8 : 0;
    item.descriptor = input.flag() ? 12 + 4 * int(input.below(4)) : 0;
    item.zip64 = input.flag();
}

void breakItem(Item& item, Input& input) {
    input.oneOf(kItemBreaks)(item, input);
}

void breakZip(Zip& zip, Input& input) {
    input.oneOf(kZipBreaks)(zip, input);
}

// Makes a step of a change to one item, which the input chooses.
template <void change(Item&, Input&)>
void inItem(Zip& zip, Input& input) {
    if (!zip.items.empty()) change(zip.items[input.below(zip.items.size())], input);
}

using Step = void (*)(Zip&, Input&);
constexpr Step kSteps[] = {nullptr,  // ends the program
                           changeItems,
                           addRelationship,
                           addType,
                           inItem<changeText>,
                           inItem<changeStorage>,
                           inItem<breakItem>,
                           breakZip,
                           inItem<repeatText>};

Zip drawBase(Input& input) {
    static const Zip kPlain = test_support::goodPlainPackage().zip();
    static const Zip kApp = test_support::goodPackage().zip();
    switch (input.below(4)) {
        case 0:
            return kPlain;
        case 1:
            return {};
        default:
            return kApp;
    }
}

}  // namespace

DrawnPackage drawPackage(Input& input) {
    DrawnPackage package{drawBase(input), {}};
    while (!input.empty()) {
        const Step step = input.oneOf(kSteps);
        if (step == nullptr) break;
        step(package.zip, input);
    }
    package.bytes = package.zip.bytes();
    for (auto count = input.below(8) / 2; count > 0 && !package.bytes.empty(); --count) {
        package.bytes[input.number(2) % package.bytes.size()] = char(input.byte());
        package.isOverwritten = true;
    }
    return package;
}

std::string drawItemName(Input& input) {
    static const std::vector<std::string> kNames = words(
        "data DATA data/x foreign/a.xml Foreign\\a.xml foreign foreign/ lumenforge/appModel.kvd "
        "lumenforge/appmodel.kvd lumenforge/appModel.kvd/x metadata/appMetadata.xml "
        "metadata/appScreenshot.png metadata/appScreenshot.jpg metadata/appScreenshot.gif "
        "korval/code.k docProps/core.xml docProps/korval.xml [Content_Types].xml "
        "[content_types].xml _rels/.rels _Rels/.rels _rels/data.rels a. ../a a//b a%2Fb a%41 "
        "a%20b.xml new.xml new.bin");
    const std::size_t kind = input.below(8);
    if (kind == 7) return drawRepeated(input.bytes(), input);
    return kind == 3 ? input.bytes() : input.oneOf(kNames);
}

std::string drawContent(Input& input) {
    std::string content = input.bytes();
    if (input.flag()) return content;
    // Longer than the buffers on its way; either one letter repeated, or hard to compress.
    const std::size_t most = input.below(64);
    const std::size_t times = most * input.below(32);
    unsigned noise = input.flag() ? 1 : 0;
    std::string all;
    for (std::size_t i = 0; i < times; ++i) {
        all += content;
        if (noise != 0) all += char((noise = noise * 1664525 + 1013904223) >> 24);
    }
    return all;
}

}  // namespace fuzz
