#include <opc/ZipArchive.hpp>

#include <opc/Exception.hpp>

#include "tests/opc/ZipTestSupport.hpp"
#include "tests/support/ZipBuilder.hpp"

#include <gtest/gtest.h>

namespace opc::zip {
namespace {

using test_support::BuiltItem;
using test_support::BuiltZip;

BuiltZip good() {
    return {.items = {{.name = "a", .content = "aaaaaaaaaa"},
                      {.name = "b", .content = "bb", .method = 0},
                      {.name = "c", .content = "ccc"}}};
}

class ZipArchiveTest : public testing::Test {
protected:
    fl::filesystem::path write(const std::string& bytes) const {
        // Rewriting a file in place makes some file systems wait for the disk.
        std::filesystem::remove(directory_.path() / "a.zip");
        return pathOf(directory_.write("a.zip", bytes));
    }
    // "name=content" of each item that is kept, in file order, then "name: reason" of each that is lost.
    std::string salvaged(const std::string& bytes) const {
        std::vector<LostItem> lost;
        const auto archive = ZipArchive::salvage(write(bytes), lost);
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

std::string withoutDirectory(const BuiltZip& zip) {
    const std::string bytes = zip.bytes();
    std::size_t directory = bytes.size();
    for (std::size_t i = 0; i < zip.items.size(); ++i)
        directory = bytes.rfind("PK\1\2", directory - 1);
    return bytes.substr(0, directory);
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
    const std::string all = "a=aaaaaaaaaa;b=bb;c=ccc;", others = "a=aaaaaaaaaa;c=ccc;";
    const std::string headers = withoutDirectory(good());
    const struct {
        const char* why;
        std::string bytes, outcome;
    } rows[] = {
        {"cut in the last item", headers.substr(0, headers.size() - 1),
         "a=aaaaaaaaaa;b=bb;c: the file ends before its data does;"},
        {"something stands in front, so offsets are wrong", "junk" + good().bytes(), all},
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
        {"encrypted", withoutDirectory(encrypted), others + "b: it is encrypted;"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(salvaged(row.bytes), row.outcome);
    }
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
}

}  // namespace
}  // namespace opc::zip
