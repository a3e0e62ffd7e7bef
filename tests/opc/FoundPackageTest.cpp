#include <opc/FoundPackage.hpp>

#include "tests/opc/ZipTestSupport.hpp"
#include "tests/support/PackageBuilder.hpp"

#include <fl/i18n.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace opc::model {
namespace {

using fl::i18n::to_display;
using test_support::BuiltZip;
using test_support::goodPlainPackage;
using test_support::PackageBuilder;
using testing::ElementsAre;

const char kLinks[] =
    R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)";

class FoundPackageTest : public testing::Test {
protected:
    fl::filesystem::path write(const std::string& bytes) const {
        // Some file systems flush a file that is written in the place of another.
        std::filesystem::remove(directory_.path() / "p.zip");
        return zip::pathOf(directory_.write("p.zip", bytes));
    }
    FoundPackage opened(const PackageBuilder& package) const {
        return FoundPackage(zip::ZipArchive::open(write(package.bytes())), kinds_);
    }
    FoundPackage salvaged(const std::string& bytes) const {
        std::vector<zip::LostItem> lost;
        return FoundPackage(zip::ZipArchive::salvage(write(bytes), lost), kinds_);
    }

    const std::vector<PartKind> kinds_ = {
        {"the thing", u"urn:thing", PartName(u"/thing.bin"), ContentType(u"a/thing")},
        {"the picture", u"urn:picture", PartName(u"/picture.png"), ContentType(u"image/png")}};

private:
    test_support::TemporaryDirectory directory_;
};

// One line an item: its name, what its type or else its fault is, and what its content is.
std::vector<std::string> linesOf(const FoundPackage& package) {
    std::vector<std::string> lines;
    for (const FoundItem& item : package.items) {
        std::string line = item.shownName;
        if (!item.name && &item != package.typesItem) line += " (" + item.nameFault + ")";
        if (item.type) line += " " + to_display(item.type->toString());
        if (!item.fault.empty()) line += " damaged";
        if (!item.otherName.empty()) line += ", also called " + item.otherName;
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> linksOf(const FoundPackage& package) {
    std::vector<std::string> links;
    for (const Relationship& link : package.relationships) {
        const FoundItem* const target = package.target(link);
        links.push_back(to_display(link.getType()) + " -> " + (target ? target->shownName : ""));
    }
    return links;
}

TEST_F(FoundPackageTest, HoldsWhatCanBeUnderstoodBesideWhatBreaksARule) {
    PackageBuilder builder = goodPlainPackage();
    builder
        .withTypes(
            R"(<Default Extension="xml" ContentType="a/x"/><Default Extension="" ContentType="a/y"/>)"
            R"(<Override PartName="/data" ContentType="a/d"/>)"
            R"(<Override PartName="/gone" ContentType="a/g"/>)")
        .withRelationships(
            R"(<Relationship Id="a" Type="urn:a" Target="data"/><Relationship Id="a" Type="urn:b"/>)"
            R"(<Relationship Id="c" Type="urn:c" TargetMode="External" Target="data"/>)"
            R"(<Relationship Id="d" Type="urn:d" Target="/gone"/>)")
        .with("two words.xml", "x");
    BuiltZip file = builder.zip();
    for (auto& item : file.items) {
        if (item.name == "foreign/a.xml") item.crc = 1;
    }
    const FoundPackage found(zip::ZipArchive::open(write(file.bytes())), kinds_);
    EXPECT_THAT(linesOf(found),
                testing::UnorderedElementsAre(
                    "[Content_Types].xml", "/_rels/.rels", "/data a/d",
                    "/foreign/a.xml a/x damaged", "/foreign/_rels/a.xml.rels",
                    "two words.xml (has the character \" \", which must be percent-encoded)"));
    EXPECT_TRUE(found.hasTypes);
    EXPECT_THAT(found.typeFaults, testing::SizeIs(1));
    EXPECT_THAT(found.typedNames, ElementsAre(PartName(u"/data"), PartName(u"/gone")));
    EXPECT_THAT(found.relationshipFaults, testing::SizeIs(1));
    EXPECT_THAT(linksOf(found), ElementsAre("urn:a -> /data", "urn:c -> ", "urn:d -> "));
    EXPECT_EQ(found.read(*found.find(PartName(u"/DATA")), 4), "data");
    EXPECT_EQ(found.read(*found.find(PartName(u"/data")), 3), std::nullopt);
    EXPECT_EQ(found.read(*found.find(PartName(u"/foreign/a.xml")), 100), std::nullopt);
}

TEST_F(FoundPackageTest, TakesTypesAndRelationshipsOfTheKindsWhereATableIsLost) {
    PackageBuilder builder = goodPlainPackage();
    builder.without("[Content_Types].xml").without("_rels/.rels");
    builder.with("thing.bin", "t").with("other.PNG", "p").with("x.bin", "x");
    const FoundPackage found = opened(builder);
    EXPECT_FALSE(found.hasTypes);
    EXPECT_EQ(found.typesItem, nullptr);
    EXPECT_THAT(
        linesOf(found),
        ElementsAre("/data application/octet-stream", "/foreign/a.xml application/octet-stream",
                    "/foreign/_rels/a.xml.rels "
                    "application/vnd.openxmlformats-package.relationships+xml",
                    "/thing.bin a/thing", "/other.PNG image/png",
                    "/x.bin application/octet-stream"));
    EXPECT_THAT(linksOf(found), ElementsAre("urn:thing -> /thing.bin"));
}

// The directory has a name of the same length as the local header's, as when a bit was flipped.
TEST_F(FoundPackageTest, CallsAnItemWithTwoNamesAsThePackageDoes) {
    const struct {
        const char* why;
        const char* local;
        const char* listed;
        const char* line;
    } rows[] = {
        {"an entry of the content types", "data", "dat!",
         "/data application/octet-stream, also called dat!"},
        {"which the directory has right", "dat!", "data", "/data application/octet-stream"},
        {"a usual name", "thing.bin", "thing.bim", "/thing.bin, also called thing.bim"},
        {"the only one that has a type", "q.xml", "q.xmm",
         "/q.xml application/xml, also called q.xmm"},
        {"neither", "q.bin", "q.bim", "/q.bim"},
        {"the only part name", "q.bin", "q.b^n", "/q.bin, also called q.b^n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        PackageBuilder builder = goodPlainPackage();
        BuiltZip file = builder.without("data").zip();
        file.items.push_back({.name = row.listed, .content = "x", .localName = row.local});
        EXPECT_THAT(linesOf(salvaged(file.bytes())), testing::Contains(row.line));
    }
}

// Directory and local header say the same twice over, so one of them may be wrong in anything, and
// also in how long its name or its extra fields are.
TEST_F(FoundPackageTest, LosesNothingIfOneBitOfARecordIsFlipped) {
    BuiltZip file = goodPlainPackage()
                        .with("empty.bin", "")
                        .with("thing.bin", "a thing")
                        .with("code.k", "x = 1")
                        .zip();
    for (auto& item : file.items) {
        item.localExtra = std::string("\x55\x54\x05\0\x01time", 9);
        item.descriptor = item.name == "data" ? 16 : 0;
        item.zip64 = item.name == "thing.bin" || item.name == "empty.bin";
        if (item.name == "empty.bin") item.method = 0;
    }
    const std::string bytes = file.bytes();
    const std::vector<std::string> whole = linesOf(salvaged(bytes));
    const struct {
        std::string signature;
        std::size_t size, lengths;  // lengths: where those of the name and the extra fields are
    } records[] = {{"PK\3\4", 30, 26}, {"PK\1\2", 46, 28}};
    for (const auto& [signature, size, lengths] : records) {
        for (auto at = bytes.find(signature); at != std::string::npos;
             at = bytes.find(signature, at + 1)) {
            const auto lengthAt = [&, &where = lengths](std::size_t which) {
                return static_cast<unsigned char>(bytes[at + where + which]);
            };
            const std::size_t fields = size + lengthAt(0), end = fields + lengthAt(2);
            for (std::size_t bit = 0; bit < 8 * end; ++bit) {
                if (bit == 8 * size) bit = 8 * fields;  // not in the name
                std::string flipped = bytes;
                flipped[at + bit / 8] = static_cast<char>(flipped[at + bit / 8] ^ 1 << bit % 8);
                std::vector<std::string> lines = linesOf(salvaged(flipped));
                for (std::string& line : lines)
                    line = line.substr(0, line.find(", also called"));
                ASSERT_THAT(lines, testing::UnorderedElementsAreArray(whole))
                    << "bit " << bit << " of the record at " << at;
            }
        }
    }
}

TEST_F(FoundPackageTest, FollowsRelationshipsFromPartToPart) {
    PackageBuilder builder = goodPlainPackage();
    builder.withRelationships(R"(<Relationship Id="a" Type="urn:a" Target="foreign/a.xml"/>)")
        .with("foreign/_rels/a.xml.rels",
              kLinks + std::string(R"(<Relationship Id="b" Type="urn:b" Target="b.xml"/>)"
                                   R"(<Relationship Id="c" Type="urn:c" Target="/data"/>)"
                                   R"(</Relationships>)"))
        .with(
            "foreign/_rels/b.xml.rels",
            kLinks + std::string(R"(<Relationship Id="a" Type="urn:a" Target="../foreign/a.xml"/>)"
                                 R"(</Relationships>)"))
        .with("foreign/b.xml", "b")
        .with("b.xml", "no one leads here");
    const FoundPackage found = opened(builder);
    std::vector<std::string> reached;
    for (const FoundItem* item : found.reachable())
        reached.push_back(item->shownName);
    EXPECT_THAT(reached,
                testing::UnorderedElementsAre("/foreign/a.xml", "/foreign/b.xml", "/data"));
}

// "-" comes before "/", so those that derive from a name need not follow it in the order of bytes.
TEST_F(FoundPackageTest, FindsNamesThatDeriveFromOthers) {
    PackageBuilder builder = goodPlainPackage();
    for (const char* name :
         {"a.xml/b.xml", "a.xml-b.xml", "A.xml", "a.xml/b.xml/c.xml", "a.xmlb.xml"})
        builder.with(name, "x");
    std::vector<zip::LostItem> lost;
    const FoundPackage found(zip::ZipArchive::salvage(write(builder.bytes()), lost), kinds_);
    std::vector<std::string> derived;
    for (const auto& [part, parent] : found.derivedNames())
        derived.push_back(part->shownName + " from " + parent->shownName);
    EXPECT_THAT(derived,
                ElementsAre("/a.xml/b.xml from /A.xml", "/a.xml/b.xml/c.xml from /a.xml/b.xml"));
}

}  // namespace
}  // namespace opc::model
