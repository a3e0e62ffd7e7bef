#include <span>

#include "tests/hostile/Corpus.hpp"
#include "tests/support/AppPackage.hpp"

namespace hostile {

using test_support::BuiltItem;
using test_support::BuiltZip;
using test_support::crc32Of;
using test_support::deflated;
using test_support::extraField;
using test_support::little;

namespace {

// In all tables items[0] is "a.txt", deflated, at offset 0, and items[1] is "b/c.txt", stored.
struct ZipRow {
    const char* why;
    void (*apply)(BuiltZip& zip);
    // "..." at its end stands for what to do about a damaged file, "!!" for what about two names.
    const char* outcome;
};

std::string whole(const std::string& outcome) {
    return completed(completed(outcome, "...", "; get the file again from where it came from"),
                     "!!", ": readers could see two different packages; remove one of them");
}

std::string unicodePath(const std::string& of, const std::string& to) {
    return extraField(0x7075, "\1" + little(crc32Of(of), 4) + to);
}

BuiltZip& wide(BuiltZip& zip) {
    zip.zip64 = true;
    return zip;
}

BuiltItem& described(BuiltZip& zip, int size) {
    zip.items[0].descriptor = size;
    return zip.items[0];
}

const std::string kLoneItem = BuiltZip{.items = {{.name = "evil", .method = 0}}}.bytes();

// What stands behind `data` where a reader that starts at the front of the file finds their end.
std::string asIfEnded(const std::string& data, std::size_t size, int width) {
    return data + "PK\7\10" + little(0, 4) + little(data.size(), width) + little(size, width) +
           kLoneItem.substr(0, 34);
}

constexpr std::uint64_t kHuge = std::uint64_t{1} << 60;

// Refused when it is opened.
const ZipRow kEndRecords[] = {
    {"item counted but missing", [](auto& zip) { zip.count = 10; },
     "there is no item's record at byte 559 of the directory..."},
    {"item not counted", [](auto& zip) { zip.count = 8; },
     "the directory has 57 bytes behind its last item, the 8th: the end record does not count all "
     "items..."},
    {"more items than bytes", [](auto& zip) { zip.count = 60000; },
     "the end record counts 60000 items, more than a directory of 559 bytes holds..."},
    {"other count on this disk", [](auto& zip) { zip.countOnDisk = 1; },
     "the end record counts 1 items on this disk and 9 in all, which must be equal..."},
    {"directory too small", [](auto& zip) { zip.directorySize = 100; },
     "the directory should end at offset 3228, where the end record starts, but has 100 bytes from "
     "offset 2669: something was removed from the file or put into it..."},
    {"directory elsewhere", [](auto& zip) { zip.directoryOffset = 3; },
     "the directory should end at offset 3228, where the end record starts, but has 559 bytes from "
     "offset 3: something was removed from the file or put into it..."},
    {"bytes behind the directory", [](auto& zip) { zip.behindDirectory = "x"; },
     "the directory should end at offset 3229, where the end record starts, but has 559 bytes from "
     "offset 2669: something was removed from the file or put into it..."},
    {"several disks", [](auto& zip) { zip.disk = 1; },
     "is one of several disks of a zip archive, which is not supported; join them first"},
    {"comment past the end", [](auto& zip) { zip.commentLength = 1; },
     "the end record at offset 3228 announces a comment of 1 bytes, but the file ends before "
     "that..."},
    {"end record in the comment", [](auto& zip) { zip.comment = "xx" + BuiltZip().bytes(); },
     "has two end records, at offsets 3228 and 3252: readers could see two different packages..."},
    {"end record behind the end", [](auto& zip) { zip.behindEnd = BuiltZip().bytes(); },
     "the directory should end at offset 3250, where the end record starts, but has 0 bytes from "
     "offset 0: something was removed from the file or put into it..."},
    {"end record in an item with a comment up to the end",
     [](auto& zip) { zip.items[8].content += BuiltZip{.commentLength = 900}.bytes(); },
     "has two end records, at offsets 2669 and 3250: readers could see two different packages..."},
    {"zip64 says otherwise", [](auto& zip) { wide(zip).count = 1; },
     "the end records contradict each other: the number of items is 1 in one and 9 in the zip64 "
     "one..."},
    {"zip64 record elsewhere", [](auto& zip) { wide(zip).locatedAt = 7; },
     "the zip64 locator at offset 3284 points to a zip64 end record at offset 7, which must stand "
     "right before it..."},
    {"zip64 record of another size", [](auto& zip) { wide(zip).wideRecordSize = 45; },
     "there is no zip64 end record of 56 bytes at offset 3228, where its locator points..."},
    {"zip64 directory larger than the file", [](auto& zip) { wide(zip).wideSize = kHuge; },
     "the directory should end at offset 3228, where the end record starts, but has "
     "1152921504606846976 bytes from offset 2669: something was removed from the file or put into "
     "it..."},
    {"zip64 count larger than the file", [](auto& zip) { wide(zip).wideCount = kHuge; },
     "the end record counts 1152921504606846976 items, more than a directory of 559 bytes "
     "holds..."},
    {"zip64 on several disks", [](auto& zip) { wide(zip).disks = 2; },
     "is one of several disks of a zip archive, which is not supported; join them first"},
};

const ZipRow kItems[] = {
    {"item on another disk", [](auto& zip) { zip.items[0].disk = 1; },
     "a.txt: stands on another disk of a zip archive of several, which is not supported; join them "
     "first"},
    {"encrypted", [](auto& zip) { zip.items[0].flags = 1; },
     "a.txt: is encrypted, which packages do not allow; decrypt the file first"},
    {"encrypted locally", [](auto& zip) { zip.items[0].localFlags = 1; },
     "a.txt: is encrypted, which packages do not allow; decrypt the file first"},
    {"masked headers", [](auto& zip) { zip.items[0].flags = 1 << 13; },
     "a.txt: is encrypted, which packages do not allow; decrypt the file first"},
    {"method 1, shrunk", [](auto& zip) { zip.items[0].method = 1; },
     "a.txt: is compressed by method 1; packages allow only 0 (stored) and 8 (deflated); pack it "
     "anew"},
    {"method 99, encrypted", [](auto& zip) { zip.items[0].method = 99; },
     "a.txt: is compressed by method 99; packages allow only 0 (stored) and 8 (deflated); pack it "
     "anew"},
    {"stored with two sizes", [](auto& zip) { zip.items[1].size = 7; },
     "b/c.txt: is stored, but declares 7 bytes and 6 in the file..."},
    {"more than deflate can hold", [](auto& zip) { zip.items[0].size = 1 << 20; },
     "a.txt: declares 1048576 bytes, more than its 45 deflated bytes can hold..."},
    {"sizes of 16 EiB",
     [](auto& zip) {
         zip.items[1].zip64 = true;
         zip.items[1].size = zip.items[1].compressedSize = ~std::uint64_t{0};
     },
     "b/c.txt: reaches from offset 80 past offset 143, where the next item or the directory "
     "starts..."},
    {"no local header", [](auto& zip) { zip.items[1].localSignature = "PK\3\5"; },
     "b/c.txt: there is no local header at offset 80, where the directory says it is..."},
    {"header far away",
     [](auto& zip) {
         zip.items[1].zip64 = true;
         zip.items[1].offset = ~std::uint64_t{0};
     },
     "there is an item at offset 80 that the directory does not list: readers could see two "
     "different packages..."},
    {"header amid the data", [](auto& zip) { zip.items[1].offset = 50; },
     "a.txt: reaches from offset 0 past offset 50, where the next item or the directory starts..."},
    {"two items at one place",
     [](auto& zip) {
         zip.items[1] = zip.items[0];
         zip.items[1].name = "c.txt";
         zip.items[1].offset = 0;
     },
     "a.txt: reaches from offset 0 past offset 0, where the next item or the directory starts..."},
    {"data reaches into the next item", [](auto& zip) { zip.items[0].compressedSize = 60; },
     "a.txt: reaches from offset 0 past offset 80, where the next item or the directory starts..."},
    {"item that is not listed", [](auto& zip) { zip.items[0].isListed = false; },
     "there is an item at offset 0 that the directory does not list: readers could see two "
     "different packages..."},
    {"last item that is not listed",
     [](auto& zip) {
         zip.items.push_back({.name = "x"});
         zip.items.back().isListed = false;
     },
     "there is an item at offset 2669 that the directory does not list: readers could see two "
     "different packages..."},
    {"item in front that is not listed",
     [](auto& zip) { zip.items[0].before = "#!" + kLoneItem.substr(0, 34); },
     "there is an item at offset 2 that the directory does not list: readers could see two "
     "different packages..."},
    {"item in a gap that is not listed",
     [](auto& zip) { zip.items[1].before = std::string(70000, '-') + kLoneItem.substr(0, 34); },
     "there is an item at offset 70080 that the directory does not list: readers could see two "
     "different packages..."},
    {"item behind deflated data that a descriptor follows",
     [](auto& zip) {
         BuiltItem& item = described(zip, 16);
         item.data = asIfEnded(*item.data, item.content.size(), 4);
     },
     "a.txt: has 50 bytes behind the end of its deflated data..."},
    {"item in stored data that a descriptor follows",
     [](auto& zip) {
         zip.items[1].descriptor = 16;
         zip.items[1].content = asIfEnded("stored", 6, 4);
     },
     "b/c.txt: holds a data descriptor at byte 6, where some readers end it and would find other "
     "items..."},
    {"item far behind in stored data that a wide descriptor follows",
     [](auto& zip) {
         zip.items[1].descriptor = 24;
         zip.items[1].content = asIfEnded(std::string((128 << 10) - 10, '-'), (128 << 10) - 10, 8);
     },
     "b/c.txt: holds a data descriptor at byte 131062, where some readers end it and would find "
     "other items..."},
    {"extra field that is too long",
     [](auto& zip) { zip.items[0].extra = little(9, 2) + little(9, 2); },
     "a.txt: has an extra field that claims more bytes than its record has..."},
    {"local extra field that is too long",
     [](auto& zip) { zip.items[0].localExtra = little(9, 2) + little(9, 2); },
     "a.txt: has an extra field that claims more bytes than its record has..."},
    {"two zip64 fields",
     [](auto& zip) {
         zip.items[0].zip64 = true;
         zip.items[0].extra = extraField(1, little(0, 24));
     },
     "a.txt: has two zip64 fields, which readers could take either of..."},
    {"zip64 field that is too short",
     [](auto& zip) {
         zip.items[0].extra = extraField(1, "1234");
         zip.items[0].size = ~0U;
     },
     "a.txt: has a zip64 field that is too short..."},
    {"zip64 field that says otherwise and is not referred to",
     [](auto& zip) { zip.items[0].extra = extraField(1, little(41, 8) + little(45, 8)); },
     "a.txt: has a zip64 field that contradicts the rest of its record..."},
    {"zip64 field that two readers read at two places",
     [](auto& zip) {
         zip.items[0].extra = extraField(1, little(0, 8) + little(45, 8) + little(50, 8));
         zip.items[0].offset = ~0U;
     },
     "a.txt: has a zip64 field that contradicts the rest of its record..."},
    {"symbolic link", [](auto& zip) { zip.items[0].attributes = 0120777U << 16; },
     "a.txt: is marked as a symbolic link or a device, which some readers make of it; pack what it "
     "stands for as a file"},
    {"directory to Unix", [](auto& zip) { zip.items[0].attributes = 040755U << 16; },
     "a.txt: is marked as a directory, but its name does not end in a slash: some readers see a "
     "directory and others a file..."},
    {"directory to DOS", [](auto& zip) { zip.items[0].attributes = 1 << 4; },
     "a.txt: is marked as a directory, but its name does not end in a slash: some readers see a "
     "directory and others a file..."},
    {"symbolic link in an extra field",
     [](auto& zip) {
         zip.items[0].localExtra =
             extraField(0x6C78, "\5" + little(0x314, 2) + little(0120777U << 16, 4));
     },
     "a.txt: has a field that may make a link or a directory of it in some readers (0x6C78); pack "
     "it anew"},
    {"local zip64 field that is too short",
     [](auto& zip) { zip.items[0].localExtra = extraField(1, "1234"); },
     "a.txt: has a zip64 field in its local header that is too short..."},
};

const ZipRow kNames[] = {
    {"zero byte", [](auto& zip) { zip.items[0].name = std::string("a\0b", 3); },
     "a\\x00b: has a name that holds a zero byte, where some readers end it; rename it"},
    {"same name", [](auto& zip) { zip.items[1].name = "a.txt"; },
     "a.txt: there is a second item of this name, \"a.txt\"!!"},
    {"same name but for case", [](auto& zip) { zip.items[1].name = "A.Txt"; },
     "a.txt: there is a second item of this name, \"A.Txt\"!!"},
    {"same name but for slashes", [](auto& zip) { zip.items[0].name = "B\\c.txt"; },
     "B\\c.txt: there is a second item of this name, \"b/c.txt\"!!"},
    {"a second set of content types", [](auto& zip) { zip.items[0].name = "[CONTENT_TYPES].xml"; },
     "[CONTENT_TYPES].xml: there is a second item of this name, \"[Content_Types].xml\"!!"},
    {"a second model", [](auto& zip) { zip.items[0].name = "lumenforge/APPMODEL.kvd"; },
     "lumenforge/APPMODEL.kvd: there is a second item of this name, \"lumenforge/appModel.kvd\"!!"},
    {"a part from the root", [](auto& zip) { zip.items[0].name = "/korval/code.k"; },
     "/korval/code.k: there is a second item of this name, \"korval/code.k\"!!"},
    {"a part through a dot", [](auto& zip) { zip.items[0].name = "./korval/code.k"; },
     "./korval/code.k: there is a second item of this name, \"korval/code.k\"!!"},
    {"a part through two dots", [](auto& zip) { zip.items[0].name = "x/../korval/code.k"; },
     "x/../korval/code.k: there is a second item of this name, \"korval/code.k\"!!"},
    {"a part from above", [](auto& zip) { zip.items[0].name = "..\\..\\korval\\code.k"; },
     "..\\..\\korval\\code.k: there is a second item of this name, \"korval/code.k\"!!"},
    {"a part with two slashes", [](auto& zip) { zip.items[0].name = "korval//code.k"; },
     "korval//code.k: there is a second item of this name, \"korval/code.k\"!!"},
    {"a part as a folder", [](auto& zip) { zip.items[0].name = "korval/code.k/"; },
     "korval/code.k/: there is a second item of this name, \"korval/code.k\"!!"},
    {"a part with an encoded letter", [](auto& zip) { zip.items[0].name = "korval/cod%65.K"; },
     "korval/cod%65.K: there is a second item of this name, \"korval/code.k\"!!"},
    {"a part with a dot behind", [](auto& zip) { zip.items[0].name = "korval/code.k."; },
     "korval/code.k.: there is a second item of this name, \"korval/code.k\"!!"},
    {"a part with a blank behind", [](auto& zip) { zip.items[0].name = "korval /code.k"; },
     "korval /code.k: there is a second item of this name, \"korval/code.k\"!!"},
    {"two that come to the same",
     [](auto& zip) {
         zip.items[0].name = "./x";
         zip.items[1].name = "y/../X";
     },
     "./x: there is a second item of this name, \"y/../X\"!!"},
    {"another name locally", [](auto& zip) { zip.items[0].localName = "b.txt"; },
     "a.txt: its local header at offset 0 contradicts the directory: another name, \"b.txt\"..."},
    {"another encoding locally",
     [](auto& zip) {
         zip.items[0].name = "\xC3\xA4";
         zip.items[0].localFlags = 1 << 11;
     },
     "├ñ: its local header at offset 0 contradicts the directory: another encoding of the name..."},
    {"renamed to a part",
     [](auto& zip) { zip.items[0].extra = unicodePath("a.txt", "korval/code.k"); },
     "a.txt: has a Unicode path field that renames it to \"korval/code.k\": readers could see two "
     "different packages..."},
    {"renamed to a part locally",
     [](auto& zip) { zip.items[0].localExtra = unicodePath("a.txt", "korval/code.k"); },
     "a.txt: has a Unicode path field that renames it to \"korval/code.k\": readers could see two "
     "different packages..."},
    {"a part renamed away",
     [](auto& zip) { zip.items[4].extra = unicodePath("korval/code.k", "\xC3\xA4"); },
     "korval/code.k: has a Unicode path field that renames it to \"ä\": readers could see two "
     "different packages..."},
    {"renaming field that is too short",
     [](auto& zip) { zip.items[0].extra = extraField(0x7075, "\1"); },
     "a.txt: has a Unicode path field that is too short..."},
};

const ZipRow kLocalHeaders[] = {
    {"another method", [](auto& zip) { zip.items[0].localMethod = 0; },
     "its local header at offset 0 contradicts the directory: another method..."},
    {"another checksum", [](auto& zip) { zip.items[0].localCrc = 1; },
     "its local header at offset 0 contradicts the directory: another checksum..."},
    {"another size", [](auto& zip) { zip.items[0].localSize = 1; },
     "its local header at offset 0 contradicts the directory: another size..."},
    {"another compressed size", [](auto& zip) { zip.items[0].localCompressedSize = 1; },
     "its local header at offset 0 contradicts the directory: another compressed size..."},
    {"another size with a descriptor", [](auto& zip) { described(zip, 16).localSize = 1; },
     "its local header at offset 0 contradicts the directory: another size..."},
    {"a size hidden in a zip64 field",
     [](auto& zip) { zip.items[0].localExtra = extraField(1, little(1, 8) + little(7, 8)); },
     "its local header at offset 0 contradicts the directory: another size..."},
    {"no descriptor", [](auto& zip) { described(zip, 16).descriptorBytes = ""; },
     "has no data descriptor behind its data, at offset 80, that agrees with the directory..."},
    {"wrong descriptor",
     [](auto& zip) { described(zip, 16).descriptorBytes = "PK\7\10" + little(0, 12); },
     "has no data descriptor behind its data, at offset 80, that agrees with the directory..."},
    {"descriptor with another checksum",
     [](auto& zip) {
         described(zip, 24).descriptorBytes =
             "PK\7\10" + little(1, 4) + little(45, 8) + little(40, 8);
     },
     "has no data descriptor behind its data, at offset 80, that agrees with the directory..."},
};

// Noticed when the item is read to its end.
const ZipRow kContents[] = {
    {"wrong checksum of stored data", [](auto& zip) { zip.items[1].crc = 1; },
     "b/c.txt: Exception: FILE: b/c.txt: its content is damaged: the checksum does not match the "
     "one in the directory..."},
    {"wrong checksum", [](auto& zip) { zip.items[0].crc = 1; },
     "a.txt: Exception: FILE: a.txt: its content is damaged: the checksum does not match the one "
     "in the directory..."},
    {"empty with a checksum",
     [](auto& zip) {
         zip.items[0].content = "";
         zip.items[0].data = "\3" + std::string(1, '\0');
         zip.items[0].crc = 1;
     },
     "a.txt: Exception: FILE: a.txt: its content is damaged: the checksum does not match the one "
     "in the directory..."},
    {"more than declared", [](auto& zip) { zip.items[0].size = 39; },
     "a.txt: Exception: FILE: a.txt: holds more than the 39 bytes declared..."},
    {"less than declared", [](auto& zip) { zip.items[0].size = 41; },
     "a.txt: Exception: FILE: a.txt: its deflated data ends after 40 of 41 declared bytes..."},
    {"bytes behind the deflated data", [](auto& zip) { *zip.items[0].data += "12345678901"; },
     "a.txt: Exception: FILE: a.txt: has 11 bytes behind the end of its deflated data..."},
    {"an item behind the deflated data",
     [](auto& zip) { *zip.items[0].data += kLoneItem.substr(0, 34); },
     "a.txt: Exception: FILE: a.txt: has 34 bytes behind the end of its deflated data..."},
    {"cut deflated data", [](auto& zip) { zip.items[0].data->pop_back(); },
     "a.txt: Exception: FILE: a.txt: its deflated data ends after 39 of 40 declared bytes..."},
    {"not deflated", [](auto& zip) { zip.items[0].data = std::string(20, '\xFF'); },
     "a.txt: Exception: FILE: a.txt: the deflated data is damaged..."},
    {"deflated without a last block", [](auto& zip) { zip.items[0].data->front() = 0; },
     "a.txt: Exception: FILE: a.txt: its deflated data has no end..."},
    {"deflated length that is contradicted", [](auto& zip) { (*zip.items[0].data)[3] = 0; },
     "a.txt: Exception: FILE: a.txt: the deflated data is damaged..."},
    {"deflated reference to before the start",
     [](auto& zip) { zip.items[0].data = "\x4b\x04\x12\x00"; },
     "a.txt: Exception: FILE: a.txt: the deflated data is damaged..."},
    {"a claim of 4 MiB",
     [](auto& zip) {
         BuiltItem& code = itemOf(zip, "korval/code.k");
         code.method = 8;
         code.data = std::string(4096, '\xFF');
         code.size = 4 << 20;
     },
     "korval/code.k: Exception: FILE: korval/code.k: the deflated data is damaged; get the file "
     "again from where it came from\ncode: Exception: FILE: korval/code.k: the deflated data is "
     "damaged..."},
    {"nothing at all",
     [](auto& zip) {
         zip.items[0].content = "";
         zip.items[0].data = "";
     },
     "a.txt: Exception: FILE: a.txt: its deflated data has no end..."},
};

// Odd, and means one thing only.
const ZipRow kTolerated[] = {
    {"comment", [](auto& zip) { zip.comment = "a comment"; }, ""},
    {"bytes behind the end", [](auto& zip) { zip.behindEnd = std::string(60000, 'x'); }, ""},
    {"bytes before the first item", [](auto& zip) { zip.items[0].before = "#!/bin/sh\n"; }, ""},
    {"gap", [](auto& zip) { zip.items[1].before = std::string(100000, '\0'); }, ""},
    {"gap before the directory", [](auto& zip) { zip.behindItems = "PK"; }, ""},
    {"unsigned narrow descriptor", [](auto& zip) { zip.items[0].descriptor = 12; }, ""},
    {"signed narrow descriptor", [](auto& zip) { zip.items[0].descriptor = 16; }, ""},
    {"signed wide descriptor", [](auto& zip) { zip.items[0].descriptor = 24; }, ""},
    {"descriptor of a stored item", [](auto& zip) { zip.items[1].descriptor = 16; }, ""},
    {"zip64 items", [](auto& zip) { zip.items[0].zip64 = zip.items[1].zip64 = true; }, ""},
    {"zip64 end", [](auto& zip) { zip.zip64 = true; }, ""},
    {"zip64 field that repeats what is known",
     [](auto& zip) {
         zip.items.back().repeatsNumbers = true;
     },  // which every edit but its own moves
     ""},
    {"unknown extra field", [](auto& zip) { zip.items[0].extra = extraField(7, "12"); }, ""},
    {"padding of extra fields", [](auto& zip) { zip.items[0].localExtra = "\0\0\0"; }, ""},
    {"renamed to what it is", [](auto& zip) { zip.items[0].extra = unicodePath("a.txt", "a.txt"); },
     ""},
    {"item comment", [](auto& zip) { zip.items[0].comment = "c"; }, ""},
    {"end record's signature in an item",
     [](auto& zip) { zip.items[1].content = "PK\5\6" + std::string(40, '\xFF'); }, ""},
    {"zip file stored in an item", [](auto& zip) { zip.items[1].content = kLoneItem; }, ""},
    {"zip file stored in an item that a descriptor follows",
     [](auto& zip) {
         zip.items[1].descriptor = 16;
         zip.items[1].content =
             BuiltZip{.items = {{.name = "a", .content = "a", .descriptor = 16}}}.bytes();
     },
     ""},
    {"local header's signature in deflated data that a descriptor follows",
     [](auto& zip) {
         BuiltItem& item = described(zip, 16);
         item.content.replace(0, 4, "PK\3\4");
         item.data->replace(item.data->find("aaaa"), 4, "PK\3\4");
     },
     ""},
    {"directory items",
     [](auto& zip) {
         const std::uint32_t kind = 040755U << 16 | 1 << 4;
         zip.items.push_back({.name = "korval/", .method = 0, .attributes = kind});
         zip.items.push_back({.name = "b/", .method = 0});
     },
     ""},
    {"Unix file", [](auto& zip) { zip.items[0].attributes = 0100644U << 16 | 1; }, ""},
    {"directory in another order", [](auto& zip) { zip.isListedBackwards = true; }, ""},
};

void addTable(Corpus& corpus, std::string_view table, std::span<const ZipRow> rows,
              const std::string& start) {
    for (const ZipRow& row : rows) {
        BuiltZip zip = goodZip();
        row.apply(zip);
        corpus.push_back(packagedApp(table, row.why, zip, start + whole(row.outcome)));
    }
}

// Files that are no zip files, or parts of some.
void addRawFiles(Corpus& corpus) {
    const std::string good = goodZip().bytes();
    const struct {
        const char* why;
        std::string bytes;
        const char* outcome;
    } rows[] = {
        {"empty", "",
         "is not a zip file, or its end is missing: there is no end record in its last 0 bytes..."},
        {"one byte", "P",
         "is not a zip file, or its end is missing: there is no end record in its last 1 bytes..."},
        {"text", repeated("x = 1;\n", 20000),
         "is not a zip file, or its end is missing: there is no end record in its last 65557 "
         "bytes..."},
        {"first half", good.substr(0, good.size() / 2),
         "is not a zip file, or its end is missing: there is no end record in its last 1625 "
         "bytes..."},
        {"second half", good.substr(good.size() / 2),
         "the directory should end at offset 1603, where the end record starts, but has 559 bytes "
         "from offset 2669: something was removed from the file or put into it..."},
        {"last byte missing", good.substr(0, good.size() - 1),
         "is not a zip file, or its end is missing: there is no end record in its last 3249 "
         "bytes..."},
        {"a byte in front", "x" + good,
         "the directory should end at offset 3229, where the end record starts, but has 559 bytes "
         "from offset 2669: something was removed from the file or put into it..."},
        {"a byte less in front", good.substr(1),
         "the directory should end at offset 3227, where the end record starts, but has 559 bytes "
         "from offset 2669: something was removed from the file or put into it..."},
        {"an archive in front", kLoneItem + good,
         "the directory should end at offset 3334, where the end record starts, but has 559 bytes "
         "from offset 2669: something was removed from the file or put into it..."},
        {"line ends converted", "PK\3\4\r\n" + good.substr(4),
         "the directory should end at offset 3230, where the end record starts, but has 559 bytes "
         "from offset 2669: something was removed from the file or put into it..."},
        {"an end record alone", BuiltZip().bytes(),
         "not a package: the zip file holds no \"[Content_Types].xml\"; choose a packaged app "
         "file"},
        {"many end records", repeated(BuiltZip().bytes(), 3000),
         "the directory should end at offset 65978, where the end record starts, but has 0 bytes "
         "from offset 0: something was removed from the file or put into it..."},
        {"many end record signatures", repeated("PK\5\6", 20000),
         "the end record at offset 79976 announces a comment of 19280 bytes, but the file ends "
         "before that..."},
    };
    for (const auto& row : rows) {
        HostileFile file =
            packagedApp("raw", row.why, {}, "open: Exception: FILE: " + whole(row.outcome));
        file.bytes = row.bytes;
        file.content = row.bytes.size();
        corpus.push_back(std::move(file));
    }
}

}  // namespace

void addZipFiles(Corpus& corpus) {
    const std::string refused = "open: Exception: FILE: ";
    addRawFiles(corpus);
    addTable(corpus, "end", kEndRecords, refused);
    addTable(corpus, "item", kItems, refused);
    addTable(corpus, "name", kNames, refused);
    addTable(corpus, "local", kLocalHeaders, refused + "a.txt: ");
    addTable(corpus, "content", kContents, "item ");
    addTable(corpus, "odd", kTolerated, "");
}

}  // namespace hostile
