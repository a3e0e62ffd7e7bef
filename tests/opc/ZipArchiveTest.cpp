#include <opc/ZipArchive.hpp>

#include <opc/Exception.hpp>

#include "tests/opc/ZipTestSupport.hpp"
#include "tests/support/ZipBuilder.hpp"

#include <gtest/gtest.h>

namespace opc::zip {
namespace {

using test_support::BuiltZip;
using test_support::TemporaryDirectory;

BuiltZip goodZip() {
    return {.items = {{.name = "a.xml", .content = std::string(40, 'a')},
                      {.name = "b/c.txt", .content = "stored", .method = 0}}};
}

std::shared_ptr<const ZipArchive> open(const TemporaryDirectory& directory,
                                       const std::string& bytes) {
    // Rewriting a file in place makes some file systems wait for the disk.
    std::filesystem::remove(directory.path() / "a.zip");
    return ZipArchive::open(pathOf(directory.write("a.zip", bytes)));
}

TEST(ZipArchive, NoticesEveryTruncation) {
    const TemporaryDirectory directory;
    BuiltZip zip = goodZip();
    zip.items[1].content = BuiltZip{.items = {{.name = "inner", .content = "i"}}}.bytes();
    zip.items[0].descriptor = 16;
    zip.comment = "comment";
    const std::string whole = zip.bytes();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_THROW(open(directory, whole.substr(0, size)), Exception) << size;
    }
}

// Refused, noticed when it is read to the end, or without effect on any content.
TEST(ZipArchive, NoticesEveryFlippedBit) {
    const TemporaryDirectory directory;
    BuiltZip zip = goodZip();
    zip.items[0].descriptor = 24;
    zip.zip64 = true;
    const std::string good = zip.bytes();
    for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
        std::string bad = good;
        bad[bit / 8] = static_cast<char>(bad[bit / 8] ^ (1 << bit % 8));
        try {
            const auto archive = open(directory, bad);
            ASSERT_EQ(archive->items().size(), 2u) << bit;
            EXPECT_EQ(readItem(*archive, "a.xml"), zip.items[0].content) << bit;
            EXPECT_EQ(readItem(*archive, "b/c.txt"), zip.items[1].content) << bit;
        } catch (const Exception&) {
        }
    }
}

}  // namespace
}  // namespace opc::zip
