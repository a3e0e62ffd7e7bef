#include <opc/ZipArchive.hpp>

#include <gtest/gtest.h>

#include "tests/opc/ZipTestSupport.hpp"
#include "tests/support/TemporaryDirectory.hpp"
#include "tests/support/ZipBuilder.hpp"

#include <algorithm>

namespace opc::zip {
namespace {

using test_support::BuiltItem;
using test_support::BuiltZip;
using test_support::TemporaryDirectory;

struct Outcome {
    std::string kept;  // "name=content" of each, in file order
    std::string lost;  // "name: reason" of each
};

Outcome salvaged(const std::string& bytes) {
    const TemporaryDirectory folder;
    const auto file = folder.write(u"z.zip", bytes);
    std::vector<LostItem> lost;
    const auto archive = ZipArchive::salvage(pathOf(file), lost);
    Outcome outcome;
    for (const ZipItem& item : archive->items()) {
        outcome.kept += item.displayName() + "=" + readAll(*archive->read(item)) + ";";
    }
    for (const LostItem& item : lost)
        outcome.lost += item.name + ": " + item.reason + ";";
    return outcome;
}

BuiltZip good() {
    return {.items = {{.name = "a", .content = "aaaaaaaaaa"},
                      {.name = "b", .content = "bb", .method = 0},
                      {.name = "c", .content = "ccc"}}};
}

std::string withoutDirectory(const BuiltZip& zip) {
    const std::string bytes = zip.bytes();
    std::size_t directory = bytes.size();
    for (std::size_t i = 0; i < zip.items.size(); ++i)
        directory = bytes.rfind("PK\1\2", directory - 1);
    return bytes.substr(0, directory);
}

std::string withoutEnd(const BuiltZip& zip) {
    const std::string bytes = zip.bytes();
    return bytes.substr(0, bytes.rfind("PK\5\6"));
}

TEST(ZipSalvage, KeepsWhatIsWholeAndSaysWhatIsNot) {
    BuiltZip renamed = good(), nested = good(), crc = good(), twice = good(), hidden = good();
    renamed.items[1].localName = "x";
    nested.items[1] = {.name = "b", .content = good().bytes(), .method = 0};
    crc.items[1].crc = 7;
    twice.items[2].name = "A";
    hidden.items[1].isListed = false;
    BuiltZip headless = good(), described = good(), encrypted = good(), recordless = good();
    headless.items[1].localSignature = "XX\3\4";
    described.items[0].descriptor = 16;
    encrypted.items[1].flags = 1;
    recordless.count = 9;
    const std::string all = "a=aaaaaaaaaa;b=bb;c=ccc;", others = "a=aaaaaaaaaa;c=ccc;";
    const std::string whole = good().bytes(), inner = good().bytes();
    const struct {
        const char* why;
        std::string bytes, kept, lost;
    } rows[] = {
        {"nothing wrong", whole, all, ""},
        {"the directory is gone", withoutDirectory(good()), all, ""},
        {"cut in the last item", whole.substr(0, withoutDirectory(good()).size() - 1),
         "a=aaaaaaaaaa;b=bb;", "c: the file ends before its data does;"},
        {"the end record miscounts", recordless.bytes(), all, ""},
        {"something stands in front, so offsets are wrong", "junk" + whole, all, ""},
        {"the directory's name wins over the local one", renamed.bytes(), all, ""},
        {"a local header without its signature", headless.bytes(), all, ""},
        {"the same where only the end record is gone", withoutEnd(headless), all, ""},
        {"another local name where only the end record is gone", withoutEnd(renamed), all, ""},
        {"sizes in a descriptor only", withoutDirectory(described), all, ""},
        {"zip in zip is content", withoutDirectory(nested), "a=aaaaaaaaaa;b=" + inner + ";c=ccc;",
         ""},
        {"a wrong checksum", crc.bytes(), others,
         "b: its content is damaged: the checksum does not match the one in the directory; get the "
         "file again from where it came from;"},
        {"names that differ in case", twice.bytes(), "a=aaaaaaaaaa;b=bb;",
         "A: there is another item of this name;"},
        {"left out of the directory on purpose", hidden.bytes(), others,
         "b: the directory does not list it;"},
        {"encrypted", withoutDirectory(encrypted), others, "b: it is encrypted;"},
        {"no zip file at all", "hello", "", ""},
        {"empty", "", "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const Outcome outcome = salvaged(row.bytes);
        EXPECT_EQ(outcome.kept, row.kept);
        EXPECT_EQ(outcome.lost, row.lost);
    }
}

TEST(ZipSalvage, EndsWhateverTheFileHolds) {
    // Each header claims the rest of the file, stored, with a wrong checksum.
    BuiltItem item{.name = "a", .content = "x", .method = 0, .crc = 1};
    const std::string bytes = withoutDirectory({.items = {item}});
    std::string hostile;
    while (hostile.size() < (4 << 20)) {
        std::string header = bytes.substr(0, bytes.size() - 1);
        const auto size = test_support::little((4 << 20) - hostile.size() - header.size(), 4);
        hostile += header.replace(18, 4, size).replace(22, 4, size);
    }
    const Outcome outcome = salvaged(hostile);
    EXPECT_EQ(outcome.kept, "");
    EXPECT_TRUE(outcome.lost.starts_with("a: ")) << outcome.lost;
}

}  // namespace
}  // namespace opc::zip
