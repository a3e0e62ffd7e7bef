#include <opc/ZipArchive.hpp>

#include <opc/Exception.hpp>

#include "tests/opc/ZipTestSupport.hpp"
#include "tests/support/ZipBuilder.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace opc::zip {
namespace {

using test_support::BuiltZip;

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

    test_support::TemporaryDirectory directory_;
};

TEST_F(ZipArchiveTest, NoticesEveryTruncation) {
    BuiltZip zip = goodZip();
    zip.items[1].content = BuiltZip{.items = {{.name = "inner", .content = "i"}}}.bytes();
    zip.items[0].descriptor = 16;
    zip.comment = "comment";
    const std::string whole = zip.bytes();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_THROW(open(whole.substr(0, size)), Exception) << size;
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
