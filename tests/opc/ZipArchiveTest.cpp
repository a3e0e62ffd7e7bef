#include <opc/ZipArchive.hpp>

#include <opc/Exception.hpp>

#include "platform/opc/src/zip/ZipFormat.hpp"
#include "tests/opc/ZipTestSupport.hpp"
#include "tests/support/ZipBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace opc::zip {
namespace {

using test_support::BuiltItem;
using test_support::BuiltZip;

BuiltZip good() {
    return {.items = {{.name = "a", .content = "aaaaaaaaaa"},
                      {.name = "b", .content = "bb", .method = 0},
                      {.name = "c", .content = "ccc"}}};
}

// A writer to a pipe leaves checksum and sizes to a descriptor after the data.
std::vector<BuiltItem> piped(std::vector<BuiltItem> items, int descriptor) {
    for (BuiltItem& item : items)
        item.descriptor = descriptor;
    return items;
}

class ZipArchiveTest : public testing::Test {
protected:
    fl::filesystem::path write(const std::string& bytes) const {
        // Rewriting a file in place makes some file systems wait for the disk.
        std::filesystem::remove(directory_.path() / "a.zip");
        return pathOf(directory_.write("a.zip", bytes));
    }
    // "name=content" of each item that is kept, in file order, then "name: reason" of each that is
    // lost.
    std::string salvaged(const std::string& bytes) const {
        std::vector<LostItem> lost;
        const auto archive = ZipArchive::salvage(write(bytes), lost);
        EXPECT_TRUE(std::ranges::is_sorted(archive->items(), {}, &ZipItem::dataOffset));
        std::string outcome;
        for (const ZipItem& item : archive->items())
            outcome += item.displayName() + "=" + readAll(*archive->read(item)) + ";";
        for (const LostItem& item : lost)
            outcome += item.name + ": " + item.reason + ";";
        return outcome;
    }

    test_support::TemporaryDirectory directory_;
};

TEST_F(ZipArchiveTest, NoticesEveryTruncation) {
    BuiltZip zip = good();
    zip.items[1].content = BuiltZip{.items = {{.name = "inner", .content = "i"}}}.bytes();
    zip.items[0].descriptor = 16;
    zip.comment = "comment";
    const std::string whole = zip.bytes();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_THROW(ZipArchive::open(write(whole.substr(0, size))), Exception) << size;
    }
}

std::string withoutEnd(const BuiltZip& zip) {
    const std::string bytes = zip.bytes();
    return bytes.substr(0, bytes.size() - 22);
}

std::string withoutDirectory(const BuiltZip& zip) {
    const std::string bytes = zip.bytes();
    std::size_t directory = bytes.size();
    for (std::size_t i = 0; i < zip.items.size(); ++i)
        directory = bytes.rfind("PK\1\2", directory - 1);
    return bytes.substr(0, directory);
}

// The front of a wide descriptor of nothing is a narrow one.
TEST_F(ZipArchiveTest, TakesTheLongestDescriptorThatFits) {
    for (const int size : {12, 16, 20, 24}) {
        BuiltZip zip{.items = {{.name = "a", .method = 0, .descriptor = size}}};
        const auto archive = ZipArchive::open(write(zip.bytes()));
        EXPECT_EQ(archive->items()[0].endOffset, 31u + unsigned(size));
    }
}

TEST_F(ZipArchiveTest, SalvageKeepsWhatIsWholeAndSaysWhatIsNot) {
    BuiltZip renamed = good(), nested = good(), crc = good(), twice = good(), hidden = good();
    renamed.items[1].localName = "x";
    nested.items[1] = {.name = "b", .content = good().bytes(), .method = 0};
    crc.items[1].crc = 7;
    twice.items[2].name = "A";
    hidden.items[1].isListed = false;
    BuiltZip misnamed = good(), bomb = good();
    misnamed.items[0].name = "b";
    misnamed.items[0].localName = "a";
    bomb.items[0] = {.name = "a", .content = std::string(80 << 20, '\0'), .crc = 7};
    BuiltZip headless = good(), described = good(), encrypted = good();
    headless.items[1].localSignature = "XX\3\4";
    described.items[0].descriptor = 16;
    encrypted.items[1].flags = 1;
    const BuiltZip inner = {
        .items = {{.name = "a", .content = "inner"}, {.name = "d", .content = "d"}}};
    const BuiltZip outer = {.items = {{.name = "b", .content = "bb"},
                                      {.name = "old", .content = inner.bytes(), .method = 0},
                                      {.name = "a", .content = "aa"}}};
    const std::string both = inner.bytes() + outer.bytes();
    const std::size_t behindRecord = both.find("PK\1\2", inner.bytes().size()) + 46 + 1;
    BuiltZip emptyFirst = good();
    emptyFirst.items[0] = {.name = "a", .method = 0};
    BuiltZip again = good(), unsure = good();
    again.items.push_back({.name = "B", .content = "newer"});
    unsure.items[1].localSignature = std::string(4, '\0');
    unsure.items[1].localMethod = 99;
    unsure.items.push_back({.name = "a", .content = "another"});
    BuiltZip emptied = good(), moved = good(), misplaced = good(), endless = good(),
             streamed = good();
    emptied.items[1] = {.name = "b",
                        .content = "bb",
                        .method = 0,
                        .crc = 0,
                        .size = 0,
                        .compressedSize = 0,
                        .localCrc = test_support::crc32Of("bb"),
                        .localSize = 2,
                        .localCompressedSize = 2};
    moved.items[0] = {.name = "a",
                      .content = withoutDirectory({.items = {good().items[2]}}),
                      .method = 0,
                      .crc = 7};
    moved.items[2].data = "x";
    misplaced.items[1] = {.name = "x", .content = "bb", .offset = 5, .localName = "b"};
    endless.items[0].crc = 7;
    endless.items[0].compressedSize = 1 << 30;
    endless.items[0].localCompressedSize = test_support::deflated("aaaaaaaaaa").size();
    streamed.items[1].descriptor = 16;
    BuiltZip folders = good();
    for (const char* name : {"D/", "d/", "e\\", "E/"})
        folders.items.push_back({.name = name, .method = 0});
    folders.items[6].localName = "E.";
    const BuiltZip newer = {.items = {{.name = "a", .content = "newer"}}};
    BuiltZip before = good();
    before.items[1].content = "BB";
    std::string oldSector = before.bytes();
    const std::size_t directory = oldSector.find("PK\1\2");
    oldSector.replace(directory, std::string::npos, good().bytes().substr(directory));
    oldSector.replace(directory, 20, 20, '\0');
    BuiltZip unsignedOne = good();
    unsignedOne.items[1] = {.name = "b", .content = "bb", .method = 0, .descriptor = 12};
    std::string claiming = unsignedOne.bytes();
    claiming[claiming.find("PK\1\2") + 32] = 50;  // the length of its comment
    BuiltZip splitOne = good();
    const std::string rest = inner.bytes().substr(inner.bytes().find("PK\3\4", 1));
    splitOne.items[1] = {.name = "rest", .content = rest, .method = 0};
    std::string splitBytes = splitOne.bytes();
    splitBytes.erase(splitBytes.find("PK\1\2", splitBytes.find("PK\5\6") + 1) + 5, 1);
    // Deflated data may hold what cannot be compressed as it is.
    const std::string held = withoutDirectory(inner) + "and more";
    BuiltZip blocks = good();
    blocks.items[0].name = "b";
    blocks.items[1] = {.name = "a", .content = held, .descriptor = 16};
    const std::size_t heldSize = held.size();
    blocks.items[1].data = "\1" + test_support::little(heldSize, 2) +
                           test_support::little(~heldSize & 0xFFFF, 2) + held;
    const std::string blockCut = blocks.bytes().substr(0, blocks.bytes().find("and more"));
    // An archive in the file has an item of the same name as the file's at the same place in it.
    BuiltZip around = good();
    const std::string innerBytes = inner.bytes();
    around.items[1] = {.name = "m", .content = innerBytes, .method = 0};
    const std::string aroundCut =
        around.bytes().substr(0, around.bytes().find(innerBytes) + innerBytes.size() - 30);
    BuiltZip astray = {.items = {{.name = "z", .content = "z", .localName = "y"}}};
    BuiltZip withAstray = good();
    astray.directoryOffset = 9000;
    const std::string strange = astray.bytes();
    withAstray.items[1] = {.name = "m", .content = strange, .method = 0};
    const std::string astrayLast =
        withAstray.bytes().substr(0, withAstray.bytes().find(strange) + strange.size());
    BuiltZip nextOne = good();
    const std::string next = nextOne.items[1].name = std::string(64 - 46, 'n');
    std::string claimingOne = nextOne.bytes();
    claimingOne[claimingOne.find("PK\1\2") + 32] = 64;
    BuiltZip sized = good();
    sized.items[0].method = 0;
    for (std::size_t i : {0u, 1u}) {
        sized.items[i].descriptor = i == 0 ? 16 : 12;
        sized.items[i].localSize = sized.items[i].content.size();
        sized.items[i].localCompressedSize = sized.items[i].localSize;
    }
    BuiltZip cut = good();
    cut.items[2] = {.name = "d", .content = "d"};
    cut.items[2].localExtra = "UT" + test_support::little(24, 2) + std::string(24, 't');
    const std::string cutFields = cut.bytes().substr(0, cut.bytes().find("UT"));
    const std::size_t record = good().bytes().find("PK\1\2"), recordSize = 46 + 1;
    std::string garbled = good().bytes();
    garbled.replace(record, 20, 20, '\0')[record + 2 * recordSize - 1] = 'q';
    const std::string recordTwice = good().bytes().substr(record + recordSize, recordSize);
    BuiltZip emptyOne = good();
    emptyOne.items[1] = {.name = "b", .method = 0, .localExtra = cut.items[2].localExtra};
    const std::string shortFields = emptyOne.bytes().erase(emptyOne.bytes().find("UT") + 9, 2);
    emptyOne.items[1].localExtra.clear();
    std::string longFields = emptyOne.bytes();
    longFields.replace(longFields.find("PK\1\2"), 20, 20, '\0');
    longFields[longFields.find("PK\3\4", 1) + 28] = 32;
    BuiltZip zeros = good();
    zeros.items[1].content = std::string(5, '\0');
    zeros.items[2] = {.name = "c", .content = std::string(400, '\0'), .method = 0};
    const std::string zerosAgain =
        zeros.bytes().insert(zeros.bytes().find("PK\3\4", 1) + 26, 1, '\0');
    BuiltZip inFolder = good();
    inFolder.items.pop_back();
    inFolder.items[0].name = "m/x";
    inFolder.items[1].name = "m/y";
    const std::string blank = inFolder.bytes().replace(inFolder.bytes().rfind("/y"), 2, "  ");
    BuiltZip lastByte = good();
    lastByte.items[0].content = "\xf0";
    lastByte.items[0].data = std::string("\xfb\0\0", 3);
    std::string byteShort = lastByte.bytes();
    byteShort.erase(byteShort.find("PK\3\4", 1) - 1, 1);
    std::string misnamedLost = good().bytes();
    misnamedLost.replace(misnamedLost.find("bbb"), 2, "xx").replace(directory, 20, 20, '\0');
    BuiltZip older = good(), withEmpty = good(), shifted = good(), doubled = good();
    older.items[0] = {.name = "a", .content = std::string(300, 'o'), .method = 0};
    const BuiltZip emptyWithin = {.items = {{.name = "c", .method = 0}}};
    const std::string within = withoutEnd(emptyWithin);
    withEmpty.items[0] = {.name = "a", .content = within, .method = 0};
    shifted.items.insert(shifted.items.begin(), {.name = "z", .content = "z"});
    shifted.items[2] = {.name = "b", .content = "bb", .method = 0, .descriptor = 12};
    const std::string content = std::string(99, 'l') + std::string(99, 'd');
    doubled.items[1] = {.name = "b", .content = content, .method = 0, .descriptor = 16};
    const std::size_t second = doubled.bytes().find("PK\3\4", 1);
    BuiltZip withFields = good();
    withFields.items[1] = {.name = "b", .method = 0};
    withFields.items[1].localExtra = std::string("\x55\x54\x18\0", 4) + std::string(24, 't');
    withFields.items.push_back({.name = "a", .content = "another"});
    const BuiltZip innerStream = {.items = {{.name = "a", .method = 0, .descriptor = 16},
                                            {.name = "b", .method = 0, .descriptor = 16}}};
    const std::string emptyOnes = innerStream.bytes();
    const BuiltZip outerStream = {
        .items = {{.name = "a", .content = "outer", .method = 0, .descriptor = 16},
                  {.name = "b", .content = emptyOnes, .method = 0, .descriptor = 16}}};
    // Zeros over the numbers of the local header of "b", and of the record of a streamed item.
    const std::string zeroed =
        withoutDirectory(good()).replace(good().bytes().find("PK\3\4", 1) + 14, 12, 12, '\0');
    BuiltZip sameName = good();
    std::string emptyRecord = streamed.bytes();
    std::string halved = good().bytes();
    halved.replace(halved.rfind("PK\1\2") + 17, 2, 2, '\0');
    emptyRecord.replace(emptyRecord.find("PK\1\2", emptyRecord.find("PK\1\2") + 1) + 16, 12, 12,
                        '\0');
    sameName.items[0].name = "c";
    sameName.items[0].localName = "a";
    sameName.items[2].data = "damaged";
    // The header of the second item says that its extra fields go on behind the end of the file.
    const auto nonsense = [](std::size_t size) {
        BuiltZip zip = good();
        zip.items[1].content = std::string(size, 'b');
        const std::string bytes = withoutDirectory(zip);
        return std::string(bytes).replace(bytes.find("PK\3\4", 4) + 28, 2, "\xff\xff");
    };
    const std::string behind =
        ": it follows a damaged place and may belong to a zip file that an item contained;";
    const std::string all = "a=aaaaaaaaaa;b=bb;c=ccc;", others = "a=aaaaaaaaaa;c=ccc;";
    const std::string elsewhere = "; get the file again from where it came from;";
    const std::string headers = withoutDirectory(good());
    // What b is, only the directory says: there is no descriptor.
    BuiltZip undescribed = good(), wide = good();
    undescribed.items[1].flags = 8;
    undescribed.items[1].localCrc = undescribed.items[1].localSize =
        undescribed.items[1].localCompressedSize = 0;
    std::string longComment = undescribed.bytes(), displaced = undescribed.bytes();
    longComment[longComment.find("PK\1\2") + 32] = '\x20';
    displaced.erase(displaced.find("PK\3\4", displaced.find("bb")) + 33, 1).erase(35, 1);
    wide.items[0].zip64 = true;
    BuiltZip emptyDescribed = good();
    emptyDescribed.items[1] = {.name = "b", .method = 0, .descriptor = 16};
    const std::string cutBehind =
        emptyDescribed.bytes().substr(0, emptyDescribed.bytes().rfind("PK\3\4"));
    // The end of c, and all records but its own.
    BuiltZip prefixed = good();
    prefixed.items = piped(prefixed.items, 16);
    prefixed.items[0].before = "a program that takes out what follows";
    std::string lastDamaged = prefixed.bytes();
    const std::size_t lastEnd = lastDamaged.find("PK\1\2") - 18;
    std::fill(lastDamaged.begin() + std::ptrdiff_t(lastEnd),
              lastDamaged.begin() + std::ptrdiff_t(lastDamaged.rfind("PK\1\2")), '\xff');
    // An archive of which a text with carriage returns would hide the directory.
    const BuiltZip text = {
        .items = {{.name = "a", .content = "1\r\n2\r\n3\r\n", .method = 0, .comment = "\r\n"},
                  {.name = "b", .content = "inner", .method = 0},
                  {.name = "d", .content = "inner", .method = 0},
                  {.name = "e", .content = "inner", .method = 0},
                  {.name = "f", .content = "inner", .method = 0}}};
    const BuiltZip aroundText = {.items = {{.name = "t", .content = "\r\n\r\n\r\n", .method = 0},
                                           {.name = "m", .content = text.bytes(), .method = 0}}};
    const struct {
        const char* why;
        std::string bytes, outcome;
    } rows[] = {
        {"a length of a comment that reaches over a record without which nobody knows the item",
         longComment, all},
        {"bytes missing in front of an item that only the directory describes, and behind it",
         displaced,
         "b=bb;a: the deflated data is damaged" + elsewhere +
             "c: its deflated data ends after 0 of 3 declared bytes" + elsewhere},
        {"damage behind bytes in front and up to the last record", lastDamaged,
         "a=aaaaaaaaaa;b=bb;c: the end of its data cannot be determined;"},
        {"a cut behind the descriptor of an empty item", cutBehind, "a=aaaaaaaaaa;b=;"},
        {"bytes put into the header of a large item", wide.bytes().insert(31, "0123456789abcdef"),
         all},
        {"a cut behind an archive with text that might have been converted",
         aroundText.bytes().substr(0, aroundText.bytes().rfind("PK\1\2") + 9),
         "t=\r\n\r\n\r\n;m=" + text.bytes() + ";"},
        {"a newer version written over the first item of an older one",
         older.bytes().replace(0, newer.bytes().size(), newer.bytes()),
         "b=bb;c=ccc;a: its content is damaged: the checksum does not match the one in the "
         "directory; get the file again from where it came from;"},
        {"an item of an older version, and a damaged record of another", oldSector,
         others + "b: it is of another version than the directory says;"},
        {"sizes in front of the data, checksums with and without signature behind it",
         withoutDirectory(sized), all},
        {"a byte too many in the header of zeros, which are in other items, too", zerosAgain,
         "a=aaaaaaaaaa;b=" + zeros.items[1].content + ";c=" + zeros.items[2].content + ";"},
        {"bytes missing in the fields of an empty item", shortFields, "a=aaaaaaaaaa;b=;c=ccc;"},
        {"a wrong length of the fields of an empty item, and a damaged record of another",
         longFields, "a=aaaaaaaaaa;b=;c=ccc;"},
        {"a damaged record, and a damaged name in the next one", garbled, all},
        {"a byte less in the directory, and the rest of an archive in an item", splitBytes,
         "a=aaaaaaaaaa;rest=" + rest + ";c=ccc;"},
        {"a cut behind an archive that an item holds, with a wrong offset", astrayLast,
         "a=aaaaaaaaaa;m=" + strange + ";"},
        {"a cut in the directory of an archive that an item holds", aroundCut,
         "a=aaaaaaaaaa;m: the file ends before its data does;"},
        {"a cut in a streamed item that holds an archive as it is", blockCut,
         "b=aaaaaaaaaa;a: the file ends before its data does;"},
        {"zeros from within a streamed item that holds an archive as it is",
         blockCut + std::string(400, '\0'),
         "b=aaaaaaaaaa;a: the end of its data cannot be determined;"},
        {"stored, with sizes in a descriptor without signature", withoutDirectory(unsignedOne),
         all},
        {"a cut behind the first record, which is that of the last item",
         good().bytes().substr(0, record) +
             good().bytes().substr(record + 2 * recordSize, recordSize),
         all},
        {"half of a record and half of the next one, with the offset of the first",
         good().bytes().erase(record + 46, recordSize), all},
        {"half of a record and half of the next one, with the offset of the second",
         good().bytes().erase(record + 30, recordSize),
         others + "b: it is of another version than the directory says;"},
        {"a record twice", good().bytes().insert(record + recordSize, recordTwice), all},
        {"a cut in the extra fields of a local header", cutFields,
         "a=aaaaaaaaaa;b=bb;d: its header is damaged;"},
        {"blanks over a name in the directory, which make it that of a folder", blank,
         "m/x=aaaaaaaaaa;m/y=bb;"},
        {"a byte is missing for which the next one stands as well", byteShort,
         "a=\xf0;b=bb;c=ccc;"},
        {"a record that claims more than the next one as its comment", claiming, all},
        {"a record that claims just the next one", claimingOne,
         "a=aaaaaaaaaa;" + next + "=bb;c=ccc;"},
        {"a damaged item with another name in its header, and a damaged record of another",
         misnamedLost,
         others + "b: its content is damaged: the checksum does not match the one in the "
                  "directory; get the file again from where it came from;"},
        {"an archive in an item, without an end, with an empty item", withoutDirectory(withEmpty),
         "a=" + within + ";b=bb;c=ccc;"},
        {"a streamed item behind one that lost bytes, and no end record",
         withoutEnd(shifted).erase(70, 2),
         "z=z;b=bb;c=ccc;a: the deflated data is damaged; get the file again from where it came "
         "from;"},
        {"the start of a streamed item twice",
         doubled.bytes().insert(second, doubled.bytes().substr(second, 120)),
         "a=aaaaaaaaaa;b=" + content + ";c=ccc;"},
        {"the start of a streamed item in another place",
         "junk" + doubled.bytes().substr(second, 120) +
             doubled.bytes().replace(second, 30, 30, '\0'),
         "a=aaaaaaaaaa;b=" + content + ";c=ccc;"},
        {"an empty item with extra fields", withoutDirectory(withFields),
         "b=;c=ccc;a: there are several of this name, and no directory says which counts;"},
        {"a stream within a stream", withoutDirectory(outerStream), "a=outer;b=" + emptyOnes + ";"},
        {"zeros over what a header says, and no directory", zeroed,
         others + "b: its header is damaged;"},
        {"zeros over what the directory says of a streamed item", emptyRecord, all},
        {"two records of one name, and one of the items is damaged", sameName.bytes(),
         "a=aaaaaaaaaa;b=bb;c: its deflated data ends after 0 of 3 declared bytes; get the file "
         "again from where it came from;"},
        {"folders of one name, and one with another name in its header", folders.bytes(),
         all + "D/=;e\\=;d/: there is another item of this name;E/: there is another item of this "
               "name;"},
        {"zeros over half of a checksum in the directory", halved, all},
        {"zeros over what the directory says of an item", emptied.bytes(), all},
        {"where a damaged item was", moved.bytes(),
         "c=ccc;b=bb;a: its content is damaged: the checksum does not match the one in the "
         "directory; get the file again from where it came from;"},
        {"the directory has neither name nor place right", misplaced.bytes(),
         "a=aaaaaaaaaa;x=bb;c=ccc;"},
        {"data that are said to end behind the file", endless.bytes(),
         "b=bb;c=ccc;a: the file ends before its data does;"},
        {"stored, with sizes in a descriptor only", withoutDirectory(streamed), all},
        {"no end record, and a byte less in a header and in data",
         std::string(good().bytes())
             .erase(77, 1)
             .erase(10, 1)
             .substr(0, good().bytes().size() - 24),
         "b=bb;c=ccc;a: the file ends before its data does;"},
        {"bytes put into the first header", good().bytes().insert(30, 100, 'x'), all},
        {"a header without sense in front of much data", nonsense(1000),
         others + "b: its header is damaged;"},
        {"a header without sense in front of a header", nonsense(100),
         "a=aaaaaaaaaa;b: its header is damaged, and what follows it may belong to a "
         "zip "
         "file that it contained;"},
        {"an empty item without its first byte", emptyFirst.bytes().substr(1), "a=;b=bb;c=ccc;"},
        {"an archive in front, and its copy in an item cut in the directory",
         both.substr(0, behindRecord),
         "b=bb;a: it belongs to a zip file inside this one;d: it belongs to a zip file inside this "
         "one;old: the file ends before its data does;"},
        {"cut in the last item", headers.substr(0, headers.size() - 1),
         "a=aaaaaaaaaa;b=bb;c: the file ends before its data does;"},
        {"something stands in front, so offsets are wrong", "junk" + good().bytes(), all},
        {"a signature and zeros in front", "PK\3\4" + std::string(26, '\0') + good().bytes(), all},
        {"the directory's name wins over the local one", renamed.bytes(), all},
        {"a name in the directory that is another item's", misnamed.bytes(), all},
        {"a damaged item that inflates to more than is read in vain", bomb.bytes(),
         "b=bb;c=ccc;a: its content is damaged: the checksum does not match the one in the "
         "directory; get the file again from where it came from;"},
        {"a local header without its signature", headless.bytes(), all},
        {"sizes in a descriptor only", withoutDirectory(described), all},
        {"zip in zip is content", withoutDirectory(nested),
         "a=aaaaaaaaaa;b=" + good().bytes() + ";c=ccc;"},
        {"a wrong checksum", crc.bytes(),
         others + "b: its content is damaged: the checksum does not match the one in the "
                  "directory; get the file again from where it came from;"},
        {"names that differ in case", twice.bytes(),
         "a=aaaaaaaaaa;b=bb;A: there is another item of this name;"},
        {"left out of the directory on purpose", hidden.bytes(),
         others + "b: the directory does not list it;"},
        {"two of one name, and no directory", withoutDirectory(again),
         "a=aaaaaaaaaa;c=ccc;b: there are several of this name, and no directory says which "
         "counts;B: there are several of this name, and no directory says which counts;"},
        {"a name that comes again behind a gap", withoutDirectory(unsure),
         "a=aaaaaaaaaa;a: there is another item of this name;c" + behind},
        {"encrypted", withoutDirectory(encrypted), others + "b: it is encrypted;"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(salvaged(row.bytes), row.outcome);
    }
}

// A package with archives among its stored items, as an app has whose model or backup is an app
// itself.
struct Nest {
    std::string bytes;
    std::string why;
    std::map<std::string, std::string> contents;
    std::size_t header = 0, data = 0, end = 0;  // of the item that a row damages
    std::size_t directory = 0, endRecord = 0;

    Nest(const std::vector<BuiltItem>& items, const std::string& name) {
        bytes = BuiltZip{.items = items}.bytes();
        for (const BuiltItem& item : items) {
            contents[item.name] = item.content;
            why += item.name + " ";
            if (item.name == name) data = bytes.find(item.content);
            if (item.name == name) end = data + item.content.size();
        }
        why += "with " + name + " as an archive";
        header = data - 30 - name.size();
        endRecord = bytes.rfind("PK\5\6");
        directory = endRecord;
        for (std::size_t i = 0; i < items.size(); ++i)
            directory = bytes.rfind("PK\1\2", directory - 1);
    }
};

// The descriptors of the outer and of the inner archive have these sizes. Some writers to a pipe give
// no descriptor to what they store.
std::vector<Nest> nests(int outer, int inner, bool describesStored) {
    const auto archive = [&](const std::string& mark, const std::string& code) {
        return BuiltZip{.items = piped({{.name = "code", .content = code},
                                        {.name = "model", .content = mark + " model", .method = 0},
                                        {.name = "shot", .content = mark + " shot", .method = 0},
                                        {.name = "core", .content = mark + " core"}},
                                       inner)}
            .bytes();
    };
    const auto nest = [&](std::vector<BuiltItem> items, const char* name) {
        for (BuiltItem& item : items)
            item.descriptor = item.method != 0 || describesStored ? outer : 0;
        return Nest(items, name);
    };
    const BuiltItem code{.name = "code", .content = "outer code"},
        core{.name = "core", .content = "c"};
    const BuiltItem other{.name = "model", .content = archive("inner", "inner code"), .method = 0};
    const BuiltItem same{.name = "model", .content = archive("inner", "outer code"), .method = 0};
    const BuiltItem model{.name = "model", .content = "outer model"};
    const BuiltItem backup{.name = "bak", .content = archive("old", "old code"), .method = 0};
    return {nest({code, other, core}, "model"),         nest({code, same, core}, "model"),
            nest({backup, code, model, core}, "bak"),   nest({code, model, core, backup}, "bak"),
            nest({backup, code, other, core}, "model"), nest({code, core, other}, "model")};
}

std::vector<Nest> nests() {
    std::vector<Nest> all;
    for (const auto& [outer, inner, describesStored] :
         {std::tuple(0, 0, false), {16, 0, true}, {16, 0, false}, {12, 24, true}}) {
        for (Nest& nest : nests(outer, inner, describesStored)) {
            nest.why += ", descriptors of " + std::to_string(outer) + " and " +
                        std::to_string(inner) + " bytes";
            if (!describesStored) nest.why += ", none for what is stored";
            all.push_back(std::move(nest));
        }
    }
    return all;
}

// What the damage leaves, and whether names are left of all that it hurts.
struct Damage {
    const char* why;
    std::string (*damaged)(const Nest& nest);
    bool isTold = true;
};

constexpr Damage kDamages[] = {
    {"none", [](const Nest& nest) { return nest.bytes; }},
    {"a bit of the content",
     [](const Nest& nest) {
         std::string bytes = nest.bytes;
         bytes[nest.data + 45] ^= 1;
         return bytes;
     }},
    {"a bit of the checksum",
     [](const Nest& nest) {
         std::string bytes = nest.bytes;
         bytes[nest.header + 14] ^= 1;
         return bytes;
     }},
    {"the header's signature",
     [](const Nest& nest) { return std::string(nest.bytes).replace(nest.header, 4, "XXXX"); }},
    {"a bit of the header's signature",
     [](const Nest& nest) { return std::string(nest.bytes).replace(nest.header, 1, "Q"); }},
    {"sizes of 0",
     [](const Nest& nest) {
         return std::string(nest.bytes).replace(nest.header + 18, 8, std::string(8, '\0'));
     }},
    {"sizes of 0xffffffff",
     [](const Nest& nest) {
         return std::string(nest.bytes).replace(nest.header + 18, 8, std::string(8, '\xff'));
     }},
    {"one of two sizes",
     [](const Nest& nest) {
         std::string bytes = nest.bytes;
         bytes[nest.header + 18] ^= 0x40;
         return bytes;
     }},
    {"a method",
     [](const Nest& nest) { return std::string(nest.bytes).replace(nest.header + 8, 1, "\x09"); }},
    {"the length of the name",
     [](const Nest& nest) { return std::string(nest.bytes).replace(nest.header + 27, 1, "\x01"); },
     false},
};

class NestTest : public ZipArchiveTest {
protected:
    // Nothing is kept that is not the outer package's, and what is not kept is told.
    void check(const Nest& nest, const std::string& bytes, bool isTold) {
        std::vector<LostItem> lost;
        const auto archive = ZipArchive::salvage(write(bytes), lost);
        kept_.clear();
        for (const ZipItem& item : archive->items()) {
            const auto known = nest.contents.find(item.name);
            ASSERT_TRUE(known != nest.contents.end()) << item.name;
            ASSERT_EQ(readAll(*archive->read(item)), known->second) << item.name;
            kept_.insert(item.name);
        }
        for (const auto& [name, content] : nest.contents) {
            const auto isIt = [&, &its = name](const LostItem& item) { return item.name == its; };
            if (!isTold || kept_.contains(name)) continue;
            ASSERT_TRUE(std::ranges::any_of(lost, isIt)) << name;
        }
    }

    std::set<std::string> kept_;  // the names of the items that check() found to be kept
};

TEST_F(NestTest, SalvageTakesNothingOutOfAnArchiveThatAnItemHolds) {
    for (const Nest& nest : nests()) {
        for (const Damage& damage : kDamages) {
            const std::string bytes = damage.damaged(nest);
            const std::string wrongOffset =
                std::string(bytes).replace(nest.endRecord + 16, 4, 4, '\0');
            const struct {
                const char* why;
                std::string bytes;
                bool isTold;
            } rows[] = {
                {"as it is", bytes, true},
                {"without end record", bytes.substr(0, nest.endRecord), damage.isTold},
                {"without directory", bytes.substr(0, nest.directory), damage.isTold},
                {"directory at a wrong offset", wrongOffset, true},
                {"directory after an insertion", std::string(bytes).insert(nest.directory, "12345"),
                 true},
                {"something in front", "junk" + bytes, true},
                {"without front, header included", bytes.substr(nest.data), true},
                {"without front, half of the header", bytes.substr(nest.data - 20), true},
                {"without front and directory", bytes.substr(nest.data, nest.directory - nest.data),
                 false},
            };
            for (const auto& row : rows) {
                SCOPED_TRACE(nest.why + ", " + damage.why + ", " + row.why);
                // An archive of which nothing else is left cannot be told from a package of its
                // own.
                const bool isAlone =
                    row.bytes.size() <= nest.end - nest.data + format::descriptor::kLargest;
                if (!isAlone) check(nest, row.bytes, row.isTold);
            }
        }
    }
}

TEST_F(NestTest, SalvageTakesNothingOutOfAnArchiveThatIsCut) {
    for (const Nest& nest : nests()) {
        for (const Damage& damage : kDamages) {
            const std::string bytes = damage.damaged(nest);
            for (std::size_t size = nest.data; size < bytes.size(); size += 11) {
                SCOPED_TRACE(nest.why + ", " + damage.why + ", cut to " + std::to_string(size));
                check(nest, bytes.substr(0, size), false);
                const bool isInFront = nest.bytes.find("outer code") < nest.header;
                const bool isKept = isInFront && &damage == kDamages;
                EXPECT_TRUE(!isKept || kept_.contains("code"));
                if (!isKept || size >= nest.end) continue;
                check(nest, "junk" + std::string(40, '\0') + bytes.substr(0, size), false);
                EXPECT_TRUE(kept_.contains("code"));
            }
        }
    }
}

// From the end of an archive on, or behind it, the file's end or a piece is gone. So may be what the
// archive says of its directory's offset.
TEST_F(NestTest, SalvageKeepsWhatIsInFrontOfAnArchive) {
    for (const Nest& nest : nests()) {
        const bool isInFront = nest.bytes.find("outer code") < nest.header;
        for (std::size_t size = nest.end - 6; size < nest.endRecord + 22; size += 3) {
            const std::string front = nest.bytes.substr(0, size);
            std::string holed = nest.bytes, filled = nest.bytes;
            std::fill_n(holed.begin() + std::ptrdiff_t(size),
                        std::min<std::size_t>(74, holed.size() - size), '\0');
            std::fill_n(filled.begin() + std::ptrdiff_t(nest.end) - 6, 10, '\xff');
            for (const std::string& bytes : {front, front + std::string(99, '\0'), holed, filled}) {
                SCOPED_TRACE(nest.why + ", which ends at " + std::to_string(nest.end) + ", " +
                             std::to_string(size) + " bytes of " + std::to_string(bytes.size()));
                check(nest, bytes, false);
                EXPECT_TRUE(!isInFront || kept_.contains("code"));
            }
        }
    }
}

// The directory is whole and leads to the wrong places, as one of an archive within the file does.
TEST_F(NestTest, SalvageKeepsAllButTheItemThatBytesArePutInto) {
    for (const Nest& nest : nests()) {
        for (std::size_t at = nest.data; at <= nest.end; at += 25) {
            for (const std::size_t size : {5u, 1500u}) {
                SCOPED_TRACE(nest.why + ", " + std::to_string(size) + " bytes put in at " +
                             std::to_string(at - nest.data));
                check(nest, std::string(nest.bytes).insert(at, size, 'x'), true);
                EXPECT_LE(nest.contents.size(), kept_.size() + 1);
            }
        }
    }
}

// An item may hold a program in front of an archive, or the rest of one that was cut off in front. That
// items of the archive are the package's, too, and at the same place, makes it look like the package.
TEST_F(NestTest, SalvageTakesNothingOutOfPartsOfArchives) {
    const BuiltItem first{.name = "first", .content = std::string(90, 't'), .method = 0};
    const auto check = [this](const Nest& nest, const std::string& bytes, bool isAll) {
        NestTest::check(nest, bytes, false);
        EXPECT_TRUE(kept_.contains("first") && kept_.contains("code"));
        EXPECT_TRUE(!isAll || kept_.size() == nest.contents.size());
    };
    for (const auto& [outer, inner, name, code] : {std::tuple(0, 0, "bak", "outer code"),
                                                   {0, 16, "bak", "outer code"},
                                                   {16, 0, "bak", "outer code"},
                                                   {16, 16, "bak", "outer code"},
                                                   {16, 0, "model", "outer code"},
                                                   {16, 0, "model", "inner code"}}) {
        std::vector<BuiltItem> items =
            piped({first,
                   {.name = "code", .content = "inner code"},
                   {.name = "model", .content = "inner model", .method = 0},
                   {.name = "last", .content = "inner", .method = 0}},
                  inner);
        const std::string archive = BuiltZip{.items = items}.bytes();
        // Its record leads into the item that holds the archive.
        const std::size_t data =
            BuiltZip{.items = {first, {.name = "code", .content = code}}}.bytes().find("PK\1\2") +
            33;
        items.push_back({.name = "none", .content = "prog", .method = 0, .offset = data + 2 - 34});
        const std::string withOneMore = BuiltZip{.items = items}.bytes();
        const auto from = [](const std::string& bytes, const char* text, std::size_t skipped) {
            return bytes.substr(bytes.find(text) - skipped);
        };
        for (const std::string& content :
             {"a program" + archive, archive.substr(50), from(archive, "last", 30),
              "a program" + from(withOneMore, "PK\1\2", 0)}) {
            // If all that is in front is the archive's, too, the rest of it is taken for the package.
            if (code == std::string("inner code") && !content.starts_with("a program")) continue;
            const BuiltItem holder{.name = name, .content = content, .method = 0};
            const Nest nest(piped({first, {.name = "code", .content = code}, holder}, outer), name);
            SCOPED_TRACE(nest.why + ", " + std::to_string(content.size()) +
                         " bytes, descriptors of " + std::to_string(outer) + " and " +
                         std::to_string(inner) + " bytes");
            for (std::size_t at = nest.directory; at < nest.endRecord; ++at) {
                if (nest.bytes.compare(at, 4, "PK\1\2") != 0) continue;
                std::string flipped = nest.bytes;
                flipped[at + 34] ^= 1;  // the number of the disk
                check(nest, flipped, true);
            }
            for (std::size_t at = nest.data + 1; at < nest.endRecord; at += 3) {
                SCOPED_TRACE(std::to_string(at - nest.data) + " bytes of the item");
                check(nest, nest.bytes.substr(0, at), false);
                std::string zeros = nest.bytes;
                std::fill(zeros.begin() + std::ptrdiff_t(at),
                          zeros.begin() + std::ptrdiff_t(nest.endRecord), '\0');
                check(nest, zeros, false);
            }
        }
    }
}

// The first or the last bytes come twice, as when a block was written to the wrong place.
TEST_F(ZipArchiveTest, SalvageKeepsAllIfItsEndsAreThereTwice) {
    BuiltZip described = good();
    for (auto& item : described.items)
        item.descriptor = 16;
    BuiltZip longer = described;
    longer.items[1].name = "a name of which a copy may hold a part";
    for (const BuiltZip& zip : {good(), described, longer}) {
        const std::string bytes = zip.bytes();
        const std::string all = "a=aaaaaaaaaa;" + zip.items[1].name + "=bb;c=ccc;";
        for (std::size_t size = 1; size < bytes.size(); ++size) {
            const std::string last = bytes + bytes.substr(bytes.size() - size);
            EXPECT_THAT(salvaged(last), testing::StartsWith(all)) << size;
            // A copy that begins in the first header makes another one of two halves.
            for (const std::size_t from : {0u, 2u, 8u, 20u}) {
                if (from + size > bytes.size()) continue;
                const std::string first = bytes.substr(0, from + size) + bytes.substr(from);
                EXPECT_THAT(salvaged(first), testing::StartsWith(all)) << size << " from " << from;
            }
        }
    }
}

// Bytes of the file that come again at another place make items of two halves there.
TEST_F(ZipArchiveTest, SalvageKeepsWhatBytesFromElsewhereDoNotTouch) {
    const auto check = [this](const std::string& bytes, const std::string& last, bool isAll) {
        const std::size_t second = bytes.find("PK\3\4", 1);
        const std::size_t third = bytes.find("PK\3\4", second + 1);
        const std::size_t behindHeader = third + 31 + last.find('=');
        const std::size_t directory = bytes.find("PK\1\2");
        for (const std::size_t at : {std::size_t{0}, std::size_t{31}, second}) {
            for (std::size_t from = 0; from < (isAll ? directory : second); from += 3) {
                // In front of the file, a header without data is not told from an item's.
                const std::size_t shortest = at == 0 && from < third ? behindHeader - from : 20;
                for (std::size_t size = shortest; from + size <= directory; size += 7) {
                    SCOPED_TRACE(std::to_string(size) + " bytes from " + std::to_string(from) +
                                 " at " + std::to_string(at));
                    const auto outcome =
                        salvaged(std::string(bytes).insert(at, bytes.substr(from, size)));
                    const std::string first = at == second ? "a=aaaaaaaaaa;" : "";
                    for (const std::string& item : {first, std::string("b=bb;"), last})
                        ASSERT_THAT(outcome, testing::HasSubstr(item));
                }
            }
        }
    };
    BuiltZip longer = good();
    longer.items[2] = {.name = "c/and/more", .content = "of some length"};
    for (const int descriptor : {0, 16}) {
        for (BuiltZip zip : {good(), longer}) {
            zip.items = piped(zip.items, descriptor);
            const bool isLonger = zip.items[2].name != "c";
            check(zip.bytes(), isLonger ? "c/and/more=of some length;" : "c=ccc;", !isLonger);
        }
    }
}

// Of two archives one behind the other none is the file's own, unless they hold the same.
TEST_F(ZipArchiveTest, SalvageMixesNoFilesThatWereJoined) {
    BuiltZip changed = good();
    changed.items[0].content = "A";
    EXPECT_EQ(salvaged(good().bytes() + good().bytes()).substr(0, 24), "a=aaaaaaaaaa;b=bb;c=ccc;");
    const std::string within = ": it belongs to a zip file inside this one;";
    EXPECT_EQ(salvaged(good().bytes() + changed.bytes()),
              "a" + within + "b" + within + "c" + within);
}

// A program that takes a file for a text puts a carriage return in front of each line feed.
std::string converted(const std::string& bytes) {
    std::string result;
    for (const char c : bytes)
        result += c == '\n' ? "\r\n" : std::string(1, c);
    return result;
}

TEST_F(ZipArchiveTest, SalvageUndoesAConversionOfLineEnds) {
    // Carriage returns at all places relative to blocks that are read, and those of the content.
    for (std::size_t size = 4060; size < 4070; ++size) {
        std::string text(size, 'x');
        for (std::size_t feeds = 0; feeds < 9000; ++feeds)
            text += feeds % 3 == 0 ? "\r\n" : "\n";
        const BuiltZip zip = {.items = {{.name = "a\nb", .content = text, .method = 0},
                                        {.name = "c", .content = "\r\r\n\n\r", .method = 0}}};
        EXPECT_EQ(salvaged(converted(zip.bytes())), "a\nb=" + text + ";c=\r\r\n\n\r;");
    }
    // What else is damaged is lost, and nothing is undone in a file that was not converted.
    const BuiltZip windows = {.items = {{.name = "a", .content = "1\r\n2\r\n", .method = 0},
                                        {.name = "b", .content = "bb", .method = 0}}};
    const BuiltZip unix = {.items = {{.name = "a", .content = "1\n2\n", .method = 0},
                                     {.name = "b", .content = "bb", .method = 0}}};
    const std::string damaged = unix.bytes().replace(unix.bytes().find("bbb") + 1, 1, "x");
    EXPECT_EQ(salvaged(withoutEnd(windows)), "a=1\r\n2\r\n;b=bb;");
    EXPECT_THAT(salvaged(converted(damaged)), testing::StartsWith("a=1\n2\n;b: "));
}

TEST_F(ZipArchiveTest, SalvageEndsWhateverTheFileHolds) {
    // Each header claims the rest of the file, stored, with a wrong checksum.
    const BuiltItem item{.name = "a", .content = "x", .method = 0, .crc = 1};
    const std::string bytes = withoutDirectory({.items = {item}});
    std::string hostile;
    while (hostile.size() < (4 << 20)) {
        std::string header = bytes.substr(0, bytes.size() - 1);
        const auto size = test_support::little((4 << 20) - hostile.size() - header.size(), 4);
        hostile += header.replace(18, 4, size).replace(22, 4, size);
    }
    EXPECT_EQ(salvaged(hostile).substr(0, 3), "a: ");

    // A hole that would take an hour to read, in a file that seems to be a converted one.
    const fl::filesystem::path sparse = write(converted("\n"));
    std::filesystem::resize_file(directory_.path() / "a.zip", std::uintmax_t{1} << 42);
    std::vector<LostItem> lost;
    EXPECT_TRUE(ZipArchive::salvage(sparse, lost)->items().empty());
}

}  // namespace
}  // namespace opc::zip
