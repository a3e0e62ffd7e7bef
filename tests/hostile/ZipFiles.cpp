#include <span>
#include <utility>

#include "tests/hostile/Corpus.hpp"
#include "tests/support/AppPackage.hpp"

namespace hostile {

using test_support::BuiltItem;
using test_support::BuiltZip;
using test_support::crc32Of;
using test_support::extraField;
using test_support::little;

namespace {

// The facts in which a file, or an item of it, differs from the good one.
template <class Facts>
struct Row {
    Facts facts;
    const char* outcome = "";
};
using ZipRow = Row<BuiltZip>;
using ItemRow = Row<BuiltItem>;

const BuiltZip kGood = goodZip();
const std::string kGoodBytes = kGood.bytes();
const std::string kDeflated = *kGood.items[0].data;
const std::string kLoneItem = BuiltZip{.items = {{.name = "evil", .method = 0}}}.bytes();
const std::string kLocalPart = kLoneItem.substr(0, 34);
// Records that no item's place is for, and that lead to a directory of nothing.
const std::string kEndRecord = BuiltZip().bytes();
const std::string kZip64Records = BuiltZip{.zip64 = true}.bytes().substr(0, 76);
constexpr std::uint64_t kHuge = std::uint64_t{1} << 60;
constexpr std::uint64_t kMost = ~std::uint64_t{0};

std::string unicodePath(const std::string& of, const std::string& to) {
    return extraField(0x7075, "\1" + little(crc32Of(of), 4) + to);
}

// What stands behind `data` where a reader that starts at the front of the file finds their end.
std::string asIfEnded(const std::string& data, std::size_t size, int width) {
    return data + "PK\7\10" + little(0, 4) + little(data.size(), width) + little(size, width) +
           kLocalPart;
}

// Without its directory: an item, and then local headers of the same name which all lead to one
// stream that inflates to many times the file's size.
std::string sharedTail() {
    constexpr std::size_t kHeaders = 2000, kHeaderSize = 31;
    const std::string content(std::size_t{32} << 20, '\0'), tail = test_support::deflated(content);
    std::string bytes =
        BuiltZip{.items = {{.name = "a", .method = 0}}}.bytes().substr(0, kHeaderSize);
    for (std::size_t left = kHeaders; left-- > 0;) {
        bytes += "PK\3\4" + little(20, 2) + little(8, 2) + little(8, 2) + little(0, 16) +
                 little(1, 2) + little(left * kHeaderSize, 2) + "a";
    }
    return bytes + tail + "PK\7\10" + little(crc32Of(content), 4) + little(tail.size(), 4) +
           little(content.size(), 4);
}

// Zip files of one item each, whose content is the next one.
std::string nestedZips() {
    constexpr std::size_t kLevels = 40'000, kHeader = 31, kRecord = 47, kEnd = 22;
    std::string headers, records;
    for (std::size_t level = 0; level < kLevels; ++level) {
        const auto numbersOf = [](std::size_t at) {
            const std::size_t size = 1 + at * (kHeader + kRecord + kEnd);
            return little(7, 4) + little(size, 4) + little(size, 4) + little(1, 2);
        };
        headers += "PK\3\4" + little(20, 2) + little(0, 8) + numbersOf(kLevels - 1 - level) +
                   little(0, 2) + "a";
        const std::size_t directory = kHeader + 1 + level * (kHeader + kRecord + kEnd);
        records += "PK\1\2" + little(20, 2) + little(20, 2) + little(0, 8) + numbersOf(level) +
                   little(0, 16) + "a";
        records += "PK\5\6" + little(0, 4) + little(1, 2) + little(1, 2) + little(kRecord, 4) +
                   little(directory, 4) + little(0, 2);
    }
    return headers + "x" + records;
}

// Refused when it is opened.
const ZipRow kEndRecords[] = {
    {{.count = 10}, "there is no item record at byte 559 of the directory$AGAIN"},
    {{.count = 8},
     "the directory has 57 bytes after its last item, the 8th: the end record does not count all "
     "items$AGAIN"},
    {{.count = 60000},
     "the end record counts 60000 items, more than a directory of 559 bytes holds$AGAIN"},
    {{.countOnDisk = 1},
     "the end record counts 1 items on this disk and 9 in all, which must be equal$AGAIN"},
    {{.directorySize = 100},
     "the directory should end at offset 3228$BUT 100 bytes from offset 2669$MOVED"},
    {{.disk = 1},
     "is one disk of a multi-disk zip archive, which is not supported; join the disks first"},
    {{.disk = 0xFFFF},
     "is one disk of a multi-disk zip archive, which is not supported; join the disks first"},
    {{.behindEnd = std::string(3, '\0') + "x"},
     "has 4 bytes after its end, at offset 3250, that are not zeros$TWO"},
    {{.comment = kZip64Records}, "$STRAY 3250, in the comment$TWO"},
    {{.commentLength = 1},
     "the end record at offset 3228 announces a comment of 1 bytes, but the file ends before "
     "that$AGAIN"},
    {{.comment = "xx" + BuiltZip().bytes()}, "has two end records, at offsets 3228 and 3252$TWO"},
    {{.count = 1, .zip64 = true},
     "the end records contradict each other: the number of items is 1 in one and 9 in the zip64 "
     "one$AGAIN"},
    {{.zip64 = true, .locatedAt = 7},
     "the zip64 locator at offset 3284 points to a zip64 end record at offset 7, which must stand "
     "right before it$AGAIN"},
    {{.zip64 = true, .wideRecordSize = 45},
     "there is no zip64 end record of 56 bytes at offset 3228, where its locator points$AGAIN"},
    {{.zip64 = true, .wideSize = kHuge},
     "the directory should end at offset 3228$BUT 1152921504606846976 bytes from offset "
     "2669$MOVED"},
    {{.zip64 = true, .wideCount = kHuge},
     "the end record counts 1152921504606846976 items, more than a directory of 559 bytes "
     "holds$AGAIN"},
    {{.behindItems = "PK"}, "has 2 bytes at offset 2669 that belong to no item$TWO"},
    {{.behindDirectory = "x"},
     "the directory should end at offset 3229$BUT 559 bytes from offset 2669$MOVED"},
    {{.behindEnd = BuiltZip().bytes()},
     "the directory should end at offset 3250$BUT 0 bytes from offset 0$MOVED"},
    {{.zip64 = true, .disks = 2},
     "is one disk of a multi-disk zip archive, which is not supported; join the disks first"},
};

// Of the first item, "a.txt", deflated, at offset 0.
const ItemRow kItems[] = {
    {{.disk = 1},
     "is on another disk of a multi-disk zip archive, which is not supported; join the disks "
     "first"},
    {{.flags = 1}, "is encrypted$DECRYPT"},
    {{.localFlags = 1}, "is encrypted$DECRYPT"},
    {{.flags = 1 << 13}, "is encrypted$DECRYPT"},
    {{.method = 1},
     "is compressed by method 1; packages allow only 0 (stored) and 8 (deflated); pack it again"},
    {{.size = 1 << 20}, "declares 1048576 bytes, more than its 45 deflated bytes can hold$AGAIN"},
    {{.compressedSize = 60}, "reaches from offset 0 past offset 80$PAST"},
    {{.data = asIfEnded(kDeflated, 40, 4), .descriptor = 16},
     "has 50 bytes after the end of its deflated data$AGAIN"},
    {{.extra = little(9, 2) + little(9, 2)},
     "has an extra field that claims more bytes than its record has$AGAIN"},
    {{.localExtra = little(9, 2) + little(9, 2)},
     "has an extra field that claims more bytes than its record has$AGAIN"},
    {{.extra = extraField(1, little(0, 24)), .zip64 = true},
     "has two zip64 fields, of which readers could take either$AGAIN"},
    {{.size = ~0U, .extra = extraField(1, "1234")}, "has a zip64 field that is too short$AGAIN"},
    {{.localExtra = extraField(1, "1234")},
     "has a zip64 field in its local header that is too short$AGAIN"},
    {{.extra = extraField(1, little(41, 8) + little(45, 8))},
     "has a zip64 field that contradicts the rest of its record$AGAIN"},
    {{.offset = ~0U, .extra = extraField(1, little(0, 8) + little(45, 8) + little(50, 8))},
     "has a zip64 field that contradicts the rest of its record$AGAIN"},
    {{.attributes = 0120777U << 16},
     "is marked as a symbolic link or a device, and some readers would create one; pack what "
     "it stands for as a file"},
    {{.attributes = 040755U << 16}, "is marked as a directory$FOLDER"},
    {{.attributes = 1 << 4}, "is marked as a directory$FOLDER"},
    {{.attributes = 1 << 3},
     "is marked as the label of a disk, and some readers leave it out; pack it as a file"},
    {{.madeBy = 1 << 8 | 20, .attributes = 0104644U << 16}, "is marked as a directory$FOLDER"},
    {{.localExtra = extraField(0x6C78, "\5" + little(0x314, 2) + little(0120777U << 16, 4))},
     "has an extra field (0x6C78) from which some readers may make it a link or a directory; "
     "pack it again"},
    {{.localName = "b.txt"}, "$LOCAL name, \"b.txt\"$AGAIN"},
    {{.localMethod = 0}, "$LOCAL method$AGAIN"},
    {{.localCrc = 1}, "$LOCAL checksum$AGAIN"},
    {{.localSize = 1}, "$LOCAL size$AGAIN"},
    {{.localCompressedSize = 1}, "$LOCAL compressed size$AGAIN"},
    {{.localSize = 1, .descriptor = 16}, "$LOCAL size$AGAIN"},
    {{.localExtra = extraField(1, little(1, 8) + little(7, 8))}, "$LOCAL size$AGAIN"},
    {{.descriptor = 16, .descriptorBytes = ""},
     "has no data descriptor after its data, at offset 80, that agrees with the directory$AGAIN"},
    {{.descriptor = 24,
      .descriptorBytes = "PK\7\10" + little(1, 4) + little(45, 8) + little(40, 8)},
     "has no data descriptor after its data, at offset 80, that agrees with the directory$AGAIN"},
    {{.extra = unicodePath("a.txt", "korval/code.k")},
     "has a Unicode path field that renames it to \"korval/code.k\"$TWO"},
    {{.localExtra = unicodePath("a.txt", "korval/code.k")},
     "has a Unicode path field that renames it to \"korval/code.k\"$TWO"},
    {{.extra = extraField(0x7075, "\1")}, "has a Unicode path field that is too short$AGAIN"},
};

// Of the second item, "b/c.txt", stored.
const ItemRow kStoredItems[] = {
    {{.size = 7},
     "b/c.txt: is stored, but declares 7 bytes of content and 6 bytes of data, which "
     "must be equal$AGAIN"},
    {{.size = kMost, .compressedSize = kMost, .zip64 = true},
     "b/c.txt: reaches from offset 80 past offset 143$PAST"},
    {{.localSignature = "PK\3\5"},
     "b/c.txt: there is no local header at offset 80, where the directory says it is$AGAIN"},
    {{.offset = kMost, .zip64 = true}, "there is an item at offset 80$UNLISTED"},
    {{.offset = 50}, "a.txt: reaches from offset 0 past offset 50$PAST"},
    {{.content = std::string(40, 'a'), .offset = 0},
     "a.txt: reaches from offset 0 past offset 0$PAST"},
    {{.before = std::string(100000, '\0')},
     "has 100000 bytes at offset 80 that belong to no item$TWO"},
    {{.extra = extraField(7, kEndRecord)}, "$STRAY 2777, in the directory$TWO"},
    {{.comment = kZip64Records}, "$STRAY 2773, in the directory$TWO"},
    {{.localExtra = extraField(7, kEndRecord)}, "$STRAY 121, in a local header$TWO"},
    {{.localSize = 6, .descriptor = 16},
     "b/c.txt: its local header at offset 80 contradicts the directory: a different size$AGAIN"},
    {{.content = kZip64Records}, "$STRAY 117, in the data of an item$TWO"},
    {{.before = std::string(70000, '-') + kLocalPart}, "there is an item at offset 70080$UNLISTED"},
    {{.content = asIfEnded("stored", 6, 4), .descriptor = 16},
     "b/c.txt: holds a data descriptor at byte 6, at which some readers would end it and then "
     "find other items$AGAIN"},
    {{.content = asIfEnded(std::string(131062, '-'), 131062, 8), .descriptor = 24},
     "b/c.txt: holds a data descriptor at byte 131062, at which some readers would end it and then "
     "find other items$AGAIN"},
};

const ChangeRow kChanges[] = {
    {"first item that is not listed", [](auto& zip) { zip.items[0].isListed = false; },
     "there is an item at offset 0$UNLISTED"},
    {"part renamed away",
     [](auto& zip) { zip.items[4].extra = unicodePath("korval/code.k", "\xC3\xA4"); },
     "korval/code.k: has a Unicode path field that renames it to \"ä\"$TWO"},
    {"item in front that is not listed", [](auto& zip) { zip.items[0].before = "#!" + kLocalPart; },
     "there is an item at offset 2$UNLISTED"},
    {"last item that is not listed",
     [](auto& zip) { zip.items.push_back({.name = "x", .isListed = false}); },
     "there is an item at offset 2669$UNLISTED"},
    {"end record in an item with a comment up to the end",
     [](auto& zip) { zip.items[8].content += BuiltZip{.commentLength = 900}.bytes(); },
     "has two end records, at offsets 2669 and 3250$TWO"},
    {"end record in an item that leads to nothing but a zip64 locator",
     [](auto& zip) {
         zip.items[8].content += "PK\6\7" + std::string(16, '\0') + "PK\5\6" + little(0, 4) +
                                 little(1, 2) + little(1, 2) + little(0, 8) + little(900, 2);
     },
     "has two end records, at offsets 2689 and 3270$TWO"},
    {"end record in an item, which readers reach that pass over a zip64 end with padding",
     [](auto& zip) {
         zip.items[8].content += BuiltZip().bytes();
         zip.zip64 = true;
         zip.behindEnd = std::string(1, '\0');
     },
     "has two end records, at offsets 2669 and 3326$TWO"},
    {"end record in front", [](auto& zip) { zip.items[0].before = "#" + kEndRecord; },
     "$STRAY 1, in the bytes in front of the first item$TWO"},
    {"end record in an item's data that leads to a directory by its offset in the file",
     [](auto& zip) {
         zip.items[8].content += "PK\1\2PK\5\6" + little(0, 4) + little(1, 2) + little(1, 2) +
                                 little(50, 4) + little(2669, 4) + little(0, 2);
     },
     "$STRAY 2673, in the data of an item$TWO"},
    {"a folder with the name of a part",
     [](auto& zip) { zip.items.push_back({.name = "korval/code.k/", .method = 0}); },
     "korval/code.k/: there is a second item of this name, \"korval/code.k\": readers could see "
     "two "
     "different packages; remove one of them"},
    {"names that are equal when they are composed",
     [](auto& zip) {
         zip.items[0].name = "e\xCC\x81";
         zip.items[1].name = "\xC3\xA9";
         zip.items[0].flags = zip.items[1].flags = 1 << 11;
     },
     "e\xCC\x81: there is a second item of this name, \"\xC3\xA9\": readers could see two "
     "different packages; remove one of them"},
    {"names that are equal without a control character",
     [](auto& zip) {
         zip.items[0].name =
             "b/\x7F"
             "c.txt";
     },
     "b/\\u007Fc.txt: there is a second item of this name, \"b/c.txt\": readers could see two "
     "different packages; remove one of them"},
    {"names that are equal without a byte-order mark",
     [](auto& zip) {
         zip.items[0].name =
             "\xEF\xBB\xBF"
             "b/c.txt";
         zip.items[0].flags = 1 << 11;
     },
     "\\uFEFF"
     "b/c.txt: there is a second item of this name, \"b/c.txt\": readers could see "
     "two different packages; remove one of them"},
    {"a name that is marked as UTF-8 and is not",
     [](auto& zip) {
         zip.items[0].name = "\xFF";
         zip.items[0].flags = 1 << 11;
     },
     "\xEF\xBF\xBD: has a name that is marked as UTF-8 but is not, and which each reader replaces "
     "by another; rename it"},
    {"content in a folder's item", [](auto& zip) { zip.items[0].name = "x/"; },
     "x/: has the name of a directory, but holds content, which some readers leave out; rename "
     "it"},
    {"an item in an item's folder, by a name for a drive",
     [](auto& zip) { zip.items[0].name = "C:b\\c.txt\\d"; },
     "C:b\\c.txt\\d$WITHIN, \"b/c.txt\"$ONE"},
    {"zero byte in a name", [](auto& zip) { zip.items[0].name = std::string("a\0b", 3); },
     "a\\u0000b: has a name with a zero byte, at which some readers end the name; rename it"},
    {"many records that share a local header with a long name",
     [](auto& zip) {
         zip.items[0].name.assign(60000, 'n');
         zip.isListedBackwards = true;
         for (int i = 0; i < 3000; ++i)
             zip.items.push_back({.name = std::to_string(i), .method = 0, .offset = 0});
     },
     "2999: reaches from offset 0 past offset 0$PAST"},
    {"another encoding locally",
     [](auto& zip) {
         zip.items[0].name = "\xC3\xA4";
         zip.items[0].localFlags = 1 << 11;
     },
     "├ñ: $LOCAL encoding of the name$AGAIN"},
};

// Names for "a.txt" that some reader could take for the other item's.
constexpr const char* kSecondNames[][2] = {
    {"b/c.txt", "b/c.txt"},
    {"B/C.Txt", "b/c.txt"},
    {"B\\c.txt", "b/c.txt"},
    {"[CONTENT_TYPES].xml", "[Content_Types].xml"},
    {"/korval/code.k", "korval/code.k"},
    {"./korval/code.k", "korval/code.k"},
    {"x/../korval/code.k", "korval/code.k"},
    {"..\\..\\korval\\code.k", "korval/code.k"},
    {"korval//code.k", "korval/code.k"},
    {"korval/cod%65.K", "korval/code.k"},
    {"korval/code.k.", "korval/code.k"},
    {"korval/code.k;1", "korval/code.k"},
    {"C:korval/code.k", "korval/code.k"},
    {"//?/c:/korval/code.k", "korval/code.k"},
    {"korval /code.k", "korval/code.k"},
};

// Noticed when the first item is read to its end.
const ItemRow kContents[] = {
    {{.crc = 1}, "$CRC"},
    {{.size = 39}, "holds more than the 39 bytes declared$AGAIN"},
    {{.size = 41}, "its deflated data ends after 40 of 41 declared bytes$AGAIN"},
    {{.data = kDeflated + "12345678901"}, "has 11 bytes after the end of its deflated data$AGAIN"},
    {{.data = kDeflated.substr(0, kDeflated.size() - 1)},
     "its deflated data ends after 39 of 40 declared bytes$AGAIN"},
    {{.data = std::string(20, '\xFF')}, "the deflated data is damaged$AGAIN"},
    {{.data = std::string(1, '\0') + kDeflated.substr(1)}, "its deflated data has no end$AGAIN"},
};

// Odd, and means one thing only, or noticed when it is read.
const ZipRow kOddZips[] = {
    {{.comment = "a comment"}},
    {{.behindEnd = std::string(60000, '\0')}},
    {{.isListedBackwards = true}},
    {{.zip64 = true}},
};
const ItemRow kOddItems[] = {
    {{.before = "#!/bin/sh\n"}},
    {{.descriptor = 12}},
    {{.localSize = 40, .descriptor = 16}},
    {{.descriptor = 24}},
    {{.zip64 = true}},
    {{.extra = extraField(7, "12")}},
    {{.localExtra = std::string(3, '\0')}},
    {{.extra = unicodePath("a.txt", "a.txt")}},
    {{.comment = "c"}},
    {{.attributes = 0100644U << 16 | 1}},
    {{.attributes = 0010644U << 16}},
    {{.attributes = 0104644U << 16}},
};
const ItemRow kOddStoredItems[] = {
    {{.crc = 1}, "item b/c.txt: Exception: FILE: b/c.txt: $CRC"},
    {{.descriptor = 16}},
    {{.zip64 = true}},
    {{.content = "PK\5\6" + std::string(40, '\xFF')}},
    {{.content = kLoneItem}},
    {{.content = BuiltZip{.items = {{.name = "a", .content = "a", .descriptor = 16}}}.bytes(),
      .descriptor = 16}},
};
const ChangeRow kOddChanges[] = {
    // Of the last item, which every edit but its own moves.
    {"zip64 field that repeats", [](auto& zip) { zip.items.back().repeatsNumbers = true; }},
    {"local header's signature in deflated data that a descriptor follows",
     [](auto& zip) {
         BuiltItem& item = zip.items[0];
         item.descriptor = 16;
         item.content.replace(0, 4, "PK\3\4");
         item.data->replace(item.data->find("aaaa"), 4, "PK\3\4");
     }},
    {"control characters and a mark in names",
     [](auto& zip) {
         zip.items[0].name = "\x01\x7F";
         zip.items[1].name = "\xEF\xBB\xBFx";
         zip.items[1].flags = 1 << 11;
     }},
    {"zip64 end, and padding after it",
     [](auto& zip) {
         zip.zip64 = true;
         zip.disk = 0xFFFF;
         zip.behindEnd = std::string(4, '\0');
     }},
    {"directory items",
     [](auto& zip) {
         const std::uint32_t kind = 040755U << 16 | 1 << 4;
         zip.items.push_back({.name = "korval/", .method = 0, .attributes = kind});
         zip.items.push_back({.name = "b/", .method = 0});
     }},
    {"a claim of 4 MiB",
     [](auto& zip) {
         BuiltItem& code = itemOf(zip, "korval/code.k");
         code.method = 8;
         code.data = std::string(4096, '\xFF');
         code.size = 4 << 20;
     },
     "item korval/code.k: Exception: FILE: korval/code.k: the deflated data is damaged$AGAIN\n"
     "code: Exception: FILE: korval/code.k: the deflated data is damaged$AGAIN"},
};

// Files that are no zip files, or parts of some.
const struct {
    std::string bytes;
    const char* outcome;
} kRawFiles[] = {
    {"", "is empty$AGAIN"},
    {repeated("x = 1;\n", 20000), "is not a zip file but text; choose another file"},
    {std::string("\x89PNG\r\n\x1A\n\0\0", 10),
     "is not a zip file but a PNG image; choose another file"},
    {std::string("\x1F\x8B\x08\0", 4), "is not a zip file but gzip data; choose another file"},
    {std::string(257, '\0') + "ustar", "is not a zip file but a tar archive; choose another file"},
    {"\xEF\xBB\xBF\n<?xml version='1.0'?>",
     "is not a zip file but an XML document; choose another file"},
    {"<!DOCTYPE html>", "is not a zip file but an HTML page; choose another file"},
    {std::string(600, '\1'), "$NOEND 600 bytes$AGAIN"},
    {kGoodBytes.substr(0, kGoodBytes.size() - 1), "$CUT 3249 bytes$AGAIN"},
    {"x" + kGoodBytes,
     "the directory should end at offset 3229$BUT 559 bytes from offset 2669$MOVED"},
    {BuiltZip().bytes(),
     "not a package: the zip file holds no \"[Content_Types].xml\"; choose a packaged app file"},
    {repeated(BuiltZip().bytes(), 3000),
     "the directory should end at offset 65978$BUT 0 bytes from offset 0$MOVED"},
    {repeated("PK\5\6", 20000),
     "the end record at offset 79976 announces a comment of 19280 bytes, but the file ends before "
     "that$AGAIN"},
    {sharedTail(), "$CUT 65557 bytes$AGAIN"},
    {nestedZips(),
     "there is another end record or zip64 record at offset 3938086, in the data of an item: "
     "readers could see two different packages$AGAIN"},
    {repeated("PK\3\4", 50000), "$CUT 65557 bytes$AGAIN"},
    {repeated("PK\1\2", 50000), "$NOEND 65557 bytes$AGAIN"},
};

void addZips(Corpus& corpus, std::span<const ZipRow> rows, const std::string& start) {
    for (const ZipRow& row : rows) {
        BuiltZip zip = row.facts;
        zip.items = kGood.items;
        addPackagedApp(corpus, "zip", row.outcome, zip, start + row.outcome);
    }
}

void addItems(Corpus& corpus, std::size_t index, std::span<const ItemRow> rows,
              const std::string& start) {
    for (const ItemRow& row : rows) {
        BuiltZip zip = kGood;
        const BuiltItem good = std::exchange(zip.items[index], row.facts);
        BuiltItem& item = zip.items[index];
        item.name = good.name;
        if (item.method == BuiltItem().method) item.method = good.method;
        if (item.content.empty()) item.content = good.content;
        if (!item.data) item.data = good.data;
        addPackagedApp(corpus, "item", row.outcome, zip, start + row.outcome);
    }
}

void addSecondNames(Corpus& corpus, const std::string& start) {
    for (const auto& [name, other] : kSecondNames) {
        BuiltZip zip = kGood;
        zip.items[0].name = name;
        addPackagedApp(corpus, "name", name, zip,
                       start + name + ": there is a second item of this name, \"" + other +
                           "\": readers could see two different packages; remove one of them");
    }
}

void addRawFiles(Corpus& corpus, const std::string& start) {
    for (const auto& [bytes, outcome] : kRawFiles) {
        addPackagedApp(corpus, "raw", outcome, {}, start + outcome);
        corpus.back().bytes = bytes;
        corpus.back().content = bytes.size();
    }
}

}  // namespace

void addZipFiles(Corpus& corpus) {
    const std::string refused = "open: Exception: FILE: ";
    addRawFiles(corpus, refused);
    addZips(corpus, kEndRecords, refused);
    addItems(corpus, 0, kItems, refused + "a.txt: ");
    addItems(corpus, 1, kStoredItems, refused);
    addChanges(corpus, "change", kChanges, refused);
    addSecondNames(corpus, refused);
    addItems(corpus, 0, kContents, "item a.txt: Exception: FILE: a.txt: ");
    addZips(corpus, kOddZips, "");
    addItems(corpus, 0, kOddItems, "");
    addItems(corpus, 1, kOddStoredItems, "");
    addChanges(corpus, "odd", kOddChanges, "");
}

}  // namespace hostile
