#include <opc/ZipArchive.hpp>

#include <opc/Exception.hpp>

#include "tests/opc/ZipTestSupport.hpp"
#include "tests/support/ZipBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>

namespace opc::zip {
namespace {

using test_support::BuiltItem;
using test_support::BuiltZip;
using test_support::deflated;
using test_support::extraField;
using test_support::little;
using testing::HasSubstr;

BuiltZip goodZip() {
    return {.items = {{.name = "a.xml", .content = "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"},
                      {.name = "b/c.txt", .content = "stored", .method = 0}}};
}

class ZipArchiveTest : public testing::Test {
protected:
    std::shared_ptr<const ZipArchive> open(const std::string& bytes) {
        // Rewriting a file in place makes some file systems wait for the disk.
        std::filesystem::remove(directory_.path() / "a.zip");
        return ZipArchive::open(pathOf(directory_.write("a.zip", bytes)));
    }
    // What opening it and reading every item to its end says, without the file's name; empty when
    // all is well.
    std::string complaintAbout(const std::string& bytes) {
        try {
            const auto archive = open(bytes);
            for (const ZipItem& item : archive->items())
                readAll(*archive->read(item));
            return "";
        } catch (const Exception& error) {
            const std::string text = error.what();
            const std::string file = (directory_.path() / "a.zip").string() + ": ";
            return text.starts_with(file) ? text.substr(file.size()) : "(no file) " + text;
        }
    }

    test_support::TemporaryDirectory directory_;
};

struct Damage {
    const char* why;
    std::function<void(BuiltZip&)> apply;
    const char* complaint;  // how it starts
};

TEST_F(ZipArchiveTest, RefusesWhatTwoReadersCouldUnderstandDifferently) {
    const auto unicodePath = [](const std::string& of, const std::string& to) {
        return extraField(0x7075, "\1" + little(test_support::crc32Of(of), 4) + to);
    };
    const Damage rows[] = {
        {"empty file", nullptr, "is not a zip file, or its end is missing"},
        {"item counted but missing", [](auto& zip) { zip.count = 3; },
         "the end record counts 3 items, more than a directory of 104 bytes holds"},
        {"no record where one is counted",
         [](auto& zip) {
             zip.count = 3;
             zip.items[1].comment = std::string(100, 'c');
         },
         "there is no item's record at byte 204 of the directory"},
        {"item not counted", [](auto& zip) { zip.count = 1; },
         "the directory has 53 bytes behind its last item, the 1th"},
        {"more items than bytes", [](auto& zip) { zip.count = 60000; },
         "the end record counts 60000 items, more than a directory of 104 bytes holds"},
        {"other count on this disk", [](auto& zip) { zip.countOnDisk = 1; },
         "the end record counts 1 items on this disk and 2 in all"},
        {"directory too small", [](auto& zip) { zip.directorySize = 100; },
         "the directory should end at offset "},
        {"directory elsewhere", [](auto& zip) { zip.directoryOffset = 3; },
         "the directory should end at offset "},
        {"bytes behind the directory", [](auto& zip) { zip.behindDirectory = "x"; },
         "the directory should end at offset "},
        {"several disks", [](auto& zip) { zip.disk = 1; }, "is one of several disks"},
        {"comment past the end", [](auto& zip) { zip.commentLength = 1; },
         "the end record at offset 227 announces a comment of 1 bytes"},
        {"end record in the comment", [](auto& zip) { zip.comment = "xx" + BuiltZip().bytes(); },
         "has two end records, at offsets 227 and 251"},
        {"end record behind the end", [](auto& zip) { zip.behindEnd = BuiltZip().bytes(); },
         "the directory should end at offset 249"},
        {"end record in an item, with a comment up to the end",
         [](auto& zip) { zip.items[1].content = BuiltZip{.commentLength = 120}.bytes(); },
         "has two end records, at offsets "},
        {"item on another disk", [](auto& zip) { zip.items[0].disk = 1; },
         "a.xml: stands on another disk"},
        {"encrypted", [](auto& zip) { zip.items[0].flags = 1; }, "a.xml: is encrypted"},
        {"encrypted locally", [](auto& zip) { zip.items[0].localFlags = 1; },
         "a.xml: is encrypted"},
        {"masked headers", [](auto& zip) { zip.items[0].flags = 1 << 13; }, "a.xml: is encrypted"},
        {"another method",
         [](auto& zip) {
             zip.items[0].data = "x";
             zip.items[0].method = 12;
         },
         "a.xml: is compressed by method 12"},
        {"stored with two sizes", [](auto& zip) { zip.items[1].size = 7; },
         "b/c.txt: is stored, but declares 7 bytes and 6 in the file"},
        {"more than deflate can hold", [](auto& zip) { zip.items[0].size = 1 << 20; },
         "a.xml: declares 1048576 bytes, more than its "},
        {"a zero byte in a name", [](auto& zip) { zip.items[0].name = std::string("a\0b", 3); },
         "a\\x00b: has a name that holds a zero byte"},
        {"same name", [](auto& zip) { zip.items[1].name = "a.xml"; },
         "a.xml: there is a second item of this name, \"a.xml\""},
        {"same name but for case", [](auto& zip) { zip.items[1].name = "A.Xml"; },
         "a.xml: there is a second item of this name, \"A.Xml\""},
        {"same name but for slashes", [](auto& zip) { zip.items[0].name = "B\\c.txt"; },
         "B\\c.txt: there is a second item of this name, \"b/c.txt\""},
        {"another name locally", [](auto& zip) { zip.items[0].localName = "b.xml"; },
         "a.xml: its local header at offset 0 contradicts the directory: another name, \"b.xml\""},
        {"another method locally", [](auto& zip) { zip.items[0].localMethod = 0; },
         "a.xml: its local header at offset 0 contradicts the directory: another method"},
        {"another checksum locally", [](auto& zip) { zip.items[0].localCrc = 1; },
         "a.xml: its local header at offset 0 contradicts the directory: another checksum"},
        {"another size locally", [](auto& zip) { zip.items[0].localSize = 1; },
         "a.xml: its local header at offset 0 contradicts the directory: another size"},
        {"another compressed size locally", [](auto& zip) { zip.items[0].localCompressedSize = 1; },
         "a.xml: its local header at offset 0 contradicts the directory: another compressed size"},
        {"another size locally, with a descriptor",
         [](auto& zip) {
             zip.items[0].descriptor = 16;
             zip.items[0].localSize = 1;
         },
         "a.xml: its local header at offset 0 contradicts the directory: another size"},
        {"a size hidden in a zip64 field",
         [](auto& zip) { zip.items[0].localExtra = extraField(1, little(1, 8) + little(7, 8)); },
         "a.xml: its local header at offset 0 contradicts the directory: another size"},
        {"another encoding of the name locally",
         [](auto& zip) {
             zip.items[0].name = "\xC3\xA4";
             zip.items[0].localFlags = 1 << 11;
         },
         "├ñ: its local header at offset 0 contradicts the directory: another encoding"},
        {"no local header", [](auto& zip) { zip.items[1].localSignature = "PK\3\5"; },
         "b/c.txt: there is no local header at offset "},
        {"header in the directory", [](auto& zip) { zip.items[1].offset = 150; },
         "b/c.txt: stands at offset 150, behind the start of the directory"},
        {"header far away",
         [](auto& zip) {
             zip.items[1].zip64 = true;
             zip.items[1].offset = ~std::uint64_t{0};
         },
         "b/c.txt: stands at offset 18446744073709551615, behind"},
        {"two items at one place",
         [](auto& zip) {
             zip.items[1] = zip.items[0];
             zip.items[1].name = "c.xml";
             zip.items[1].offset = 0;
         },
         "a.xml: reaches from offset 0 past offset 0"},
        {"data reaches into the next item", [](auto& zip) { zip.items[0].compressedSize = 60; },
         "a.xml: reaches from offset 0 past offset "},
        {"item that is not listed", [](auto& zip) { zip.items[0].isListed = false; },
         "there is an item at offset 0 that the directory does not list"},
        {"last item not listed", [](auto& zip) { zip.items[1].isListed = false; },
         "there is an item at offset "},
        {"no descriptor",
         [](auto& zip) {
             zip.items[0].descriptor = 16;
             zip.items[0].descriptorBytes = "";
         },
         "a.xml: has no data descriptor behind its data"},
        {"wrong descriptor",
         [](auto& zip) {
             zip.items[0].descriptor = 16;
             zip.items[0].descriptorBytes = "PK\7\10" + little(0, 12);
         },
         "a.xml: has no data descriptor behind its data"},
        {"extra field that is too long",
         [](auto& zip) { zip.items[0].extra = little(9, 2) + little(9, 2); },
         "a.xml: has an extra field that claims more bytes than its record has"},
        {"local extra field that is too long",
         [](auto& zip) { zip.items[0].localExtra = little(9, 2) + little(9, 2); },
         "a.xml: has an extra field that claims more bytes than its record has"},
        {"two zip64 fields",
         [](auto& zip) {
             zip.items[0].zip64 = true;
             zip.items[0].extra = extraField(1, little(0, 24));
         },
         "a.xml: has two zip64 fields"},
        {"renamed to a part",
         [&](auto& zip) { zip.items[0].extra = unicodePath("a.xml", "b.xml"); },
         "a.xml: has a Unicode path field that renames it to \"b.xml\""},
        {"renamed to a part locally",
         [&](auto& zip) { zip.items[0].localExtra = unicodePath("a.xml", "b.xml"); },
         "a.xml: has a Unicode path field that renames it to \"b.xml\""},
        {"zip64 says otherwise",
         [](auto& zip) {
             zip.zip64 = true;
             zip.count = 1;
         },
         "the end records contradict each other: the number of items is 1 in one and 2"},
        {"zip64 record elsewhere",
         [](auto& zip) {
             zip.zip64 = true;
             zip.locatedAt = 7;
         },
         "the zip64 locator at offset "},
        {"zip64 record of another size",
         [](auto& zip) {
             zip.zip64 = true;
             zip.wideRecordSize = 45;
         },
         "there is no zip64 end record of 56 bytes at offset "},
        {"zip64 directory larger than the file",
         [](auto& zip) {
             zip.zip64 = true;
             zip.wideSize = std::uint64_t{1} << 60;
         },
         "the directory should end at offset "},
        {"zip64 count larger than the file",
         [](auto& zip) {
             zip.zip64 = true;
             zip.wideCount = std::uint64_t{1} << 60;
         },
         "the end record counts 1152921504606846976 items"},
        {"zip64 on several disks",
         [](auto& zip) {
             zip.zip64 = true;
             zip.disks = 2;
         },
         "is one of several disks"},
    };
    for (const Damage& row : rows) {
        SCOPED_TRACE(row.why);
        BuiltZip zip = goodZip();
        if (row.apply) row.apply(zip);
        EXPECT_THAT(complaintAbout(row.apply ? zip.bytes() : ""),
                    testing::StartsWith(row.complaint));
    }
}

TEST_F(ZipArchiveTest, NoticesDamagedContentBeforeItsLastByte) {
    const std::string content(1000, 'x');
    const Damage rows[] = {
        {"wrong checksum, stored",
         [](auto& zip) {
             zip.items[0].method = 0;
             zip.items[0].crc = 1;
         },
         "a: its content is damaged: the checksum does not match"},
        {"wrong checksum", [](auto& zip) { zip.items[0].crc = 1; },
         "a: its content is damaged: the checksum does not match"},
        {"empty with a checksum",
         [](auto& zip) {
             zip.items[0].content = "";
             zip.items[0].crc = 1;
         },
         "a: its content is damaged: the checksum does not match"},
        {"more than declared", [](auto& zip) { zip.items[0].size = 999; },
         "a: holds more than the 999 bytes declared"},
        {"less than declared", [](auto& zip) { zip.items[0].size = 1001; },
         "a: its deflated data ends after 1000 of 1001 declared bytes"},
        {"bytes behind the deflated data",
         [&](auto& zip) { zip.items[0].data = deflated(content) + "12345678901"; },
         "a: has 11 bytes behind the end of its deflated data"},
        {"one byte behind the deflated data",
         [&](auto& zip) { zip.items[0].data = deflated(content) + "1"; },
         "a: has 1 bytes behind the end of its deflated data"},
        {"cut deflated data",
         [&](auto& zip) {
             zip.items[0].data = deflated(content).substr(0, deflated(content).size() - 1);
         },
         "a: its deflated data "},
        {"not deflated", [](auto& zip) { zip.items[0].data = std::string(20, '\xFF'); },
         "a: the deflated data is damaged"},
        {"nothing at all",
         [](auto& zip) {
             zip.items[0].content = "";
             zip.items[0].data = "";
         },
         "a: its deflated data has no end"},
    };
    for (const Damage& row : rows) {
        SCOPED_TRACE(row.why);
        BuiltZip zip{.items = {{.name = "a", .content = content}}};
        row.apply(zip);
        EXPECT_THAT(complaintAbout(zip.bytes()), testing::StartsWith(row.complaint));
        const auto archive = open(zip.bytes());
        const auto stream = archive->read(archive->items()[0]);
        std::byte one[1];
        std::size_t handedOut = 0;
        const auto readOn = [&] {
            while (stream->read(one) > 0)
                ++handedOut;
        };
        EXPECT_THROW(readOn(), Exception);
        EXPECT_LT(handedOut, std::max<std::uint64_t>(archive->items()[0].size, 1));
        EXPECT_THROW(readOn(), Exception) << "a second time";
    }
}

TEST_F(ZipArchiveTest, ReadsWhatIsMerelyOdd) {
    const Damage rows[] = {
        {"good", [](auto&) {}, ""},
        {"comment", [](auto& zip) { zip.comment = "a comment"; }, ""},
        {"bytes behind the end", [](auto& zip) { zip.behindEnd = std::string(60000, 'x'); }, ""},
        {"bytes before the first item", [](auto& zip) { zip.items[0].before = "#!/bin/sh\n"; }, ""},
        {"gap", [](auto& zip) { zip.items[1].before = std::string(100000, '\0'); }, ""},
        {"gap before the directory", [](auto& zip) { zip.behindItems = "PK"; }, ""},
        {"unsigned narrow descriptor", [](auto& zip) { zip.items[0].descriptor = 12; }, ""},
        {"signed narrow descriptor", [](auto& zip) { zip.items[0].descriptor = 16; }, ""},
        {"unsigned wide descriptor", [](auto& zip) { zip.items[0].descriptor = 20; }, ""},
        {"signed wide descriptor", [](auto& zip) { zip.items[0].descriptor = 24; }, ""},
        {"descriptor of a stored item", [](auto& zip) { zip.items[1].descriptor = 16; }, ""},
        {"zip64 items", [](auto& zip) { zip.items[0].zip64 = zip.items[1].zip64 = true; }, ""},
        {"zip64 end", [](auto& zip) { zip.zip64 = true; }, ""},
        {"unknown extra field", [](auto& zip) { zip.items[0].extra = extraField(7, "12"); }, ""},
        {"padding of extra fields", [](auto& zip) { zip.items[0].localExtra = "\0\0\0"; }, ""},
        {"item comment", [](auto& zip) { zip.items[0].comment = "c"; }, ""},
        {"zip file stored in it",
         [](auto& zip) {
             zip.items.push_back({.name = "z", .content = goodZip().bytes(), .method = 0});
         },
         ""},
        {"an end record's signature in compressed data",
         [](auto& zip) {
             zip.items.push_back(
                 {.name = "z", .content = "PK\5\6" + std::string(40, '\xFF'), .method = 0});
         },
         ""},
        {"directory item", [](auto& zip) { zip.items.push_back({.name = "d/", .method = 0}); }, ""},
        {"directory in another order", [](auto& zip) { zip.isListedBackwards = true; }, ""},
    };
    for (const Damage& row : rows) {
        SCOPED_TRACE(row.why);
        BuiltZip zip = goodZip();
        row.apply(zip);
        EXPECT_EQ(complaintAbout(zip.bytes()), "");
        const auto archive = open(zip.bytes());
        ASSERT_EQ(archive->items().size(), zip.items.size());
        EXPECT_EQ(archive->comment(), zip.comment);
        for (const BuiltItem& item : zip.items) {
            EXPECT_EQ(readItem(*archive, item.name), item.content);
        }
    }
}

TEST_F(ZipArchiveTest, NoticesEveryTruncation) {
    BuiltZip zip = goodZip();
    zip.items[1].content = BuiltZip{.items = {{.name = "inner", .content = "i"}}}.bytes();
    zip.items[0].descriptor = 16;
    zip.comment = "comment";
    const std::string whole = zip.bytes();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_NE(complaintAbout(whole.substr(0, size)), "") << size;
    }
}

// Refused, noticed when it is read to the end, or without effect on any content.
TEST_F(ZipArchiveTest, NoticesEveryFlippedBit) {
    BuiltZip zip = goodZip();
    zip.items[0].descriptor = 24;
    zip.zip64 = true;
    const std::string good = zip.bytes();
    for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
        std::string bad = good;
        bad[bit / 8] = static_cast<char>(bad[bit / 8] ^ (1 << bit % 8));
        try {
            const auto archive = open(bad);
            ASSERT_EQ(archive->items().size(), 2u) << bit;
            EXPECT_EQ(readItem(*archive, "a.xml"), zip.items[0].content) << bit;
            EXPECT_EQ(readItem(*archive, "b/c.txt"), zip.items[1].content) << bit;
        } catch (const Exception&) {
        }
    }
}

TEST_F(ZipArchiveTest, ShowsNamesInTheirEncoding) {
    const auto archive =
        open(BuiltZip{.items = {{.name = "\x84.txt"}, {.name = "\xC3\xA4.xml", .flags = 1 << 11}}}
                 .bytes());
    EXPECT_EQ(archive->find("\x84.txt")->displayName(), "ä.txt");
    EXPECT_EQ(archive->find("\xC3\xA4.xml")->displayName(), "ä.xml");
    EXPECT_EQ(archive->find("Ä.xml"), nullptr);
}

TEST_F(ZipArchiveTest, RefusesWhatIsNoRegularFileWithoutReadingIt) {
    const std::string fifo = directory_.path() / "fifo.zip";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const auto complaint = [&](const std::u16string& name) -> std::string {
        try {
            ZipArchive::open(pathOf(name));
        } catch (const Exception& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(complaint(directory_.name("fifo.zip")),
              fifo + ": is not a regular file: Invalid argument");
    EXPECT_EQ(complaint(directory_.name("")),
              directory_.path().string() + "/: is not a regular file: Is a directory");
    EXPECT_THROW(ZipArchive::open(pathOf(directory_.name("none.zip"))), model::PackageNotFound);
    EXPECT_THROW(ZipArchive::open(pathOf(std::u16string(u"a\0b", 3))), model::PackageNotFound);
}

}  // namespace
}  // namespace opc::zip
