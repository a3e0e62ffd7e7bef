#include <opc/Package.hpp>

#include <opc/Exception.hpp>

#include "tests/support/PackageBuilder.hpp"
#include "tests/support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace opc::model {
namespace {

using interfaces::OpenMode;
using test_support::goodPlainPackage;
using test_support::PackageBuilder;
using test_support::readFile;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::ThrowsMessage;

const StandardPartInfo kInfo(1, 0);

std::string read(InputStream& stream) {
    std::string all;
    std::byte buffer[100];
    while (const auto count = stream.read(buffer)) {
        all.append(reinterpret_cast<const char*>(buffer), count);
    }
    return all;
}

std::string contentOf(const Package& package, const char16_t* name) {
    return read(*package.getPart(PartName(name)).getInputStream());
}

void setContent(Part part, std::string_view content) {
    const auto stream = part.getOutputStream();
    stream->write(std::as_bytes(std::span(content)));
    stream->flush();
}

std::vector<ustring> partNames(const Package& package) {
    std::vector<ustring> names;
    for (const auto& part : package.getParts())
        names.push_back(part.getName().toString());
    return names;
}

class PackageTest : public testing::Test {
protected:
    void put(const PackageBuilder& builder) { directory.write("p.zip", builder.bytes()); }
    std::string bytes() const { return readFile(directory.path() / "p.zip"); }

    // Opens, works on and closes the package; by default a new object each time.
    template <class Work>
    void session(OpenMode mode, Work work) {
        Package package(zip);
        package.open(mode);
        work(package);
        package.close();
    }

    test_support::TemporaryDirectory directory;
    const zippackage::ZipPhysicalPackage zip{directory.name("p.zip"), true};
};

TEST_F(PackageTest, IsAPackageWhenNothingIsSetInANewOne) {
    for (const auto mode : {OpenMode::Create, OpenMode::CreateNew}) {
        std::filesystem::remove(directory.path() / "p.zip");
        session(mode, [](const Package&) {});
        session(OpenMode::Read,
                [](const Package& package) { EXPECT_THAT(partNames(package), ElementsAre()); });
    }
}

TEST_F(PackageTest, ToleratesWhatIsMerelyOdd) {
    put(goodPlainPackage()
            .with("untyped.bin", "x")
            .with("not a part name.xml", "x")
            .with("folder/", "")
            .withRelationships("<Relationship Id='a' Type='t' Target='/gone.xml'/>"
                               "<Relationship Id='b' Type='t' Target='::odd::'/>"
                               "<Relationship Id='c' Type='t' Target='file:///etc/passwd' "
                               "TargetMode='External'/>"));
    session(OpenMode::Read, [](Package& package) {
        EXPECT_THAT(partNames(package), ElementsAre(u"/_rels/.rels", u"/data", u"/foreign/a.xml",
                                                    u"/foreign/_rels/a.xml.rels"));
        EXPECT_EQ(package.getRelationships().size(), 3U);
        EXPECT_EQ(package.getRelationshipsByType(u"t").size(), 3U);
        EXPECT_TRUE(package.hasPart(PartName(u"/DATA")));
        EXPECT_FALSE(package.hasPart(PartName(u"/untyped.bin")));
    });
    put(goodPlainPackage().without("_rels/.rels"));
    session(OpenMode::Read,
            [](Package& package) { EXPECT_TRUE(package.getRelationships().empty()); });
}

TEST_F(PackageTest, CreatesAPackageThatReadsBack) {
    put(goodPlainPackage().with("[Content_Types].xml", "broken; it is about to be replaced"));
    session(OpenMode::Create, [](Package& package) {
        setContent(package.createPart(PartName(u"/a/B.xml"), ContentType(u"a/b"), kInfo), "one");
        package.createPart(PartName(u"/empty"), ContentType(u"a/c"), StandardPartInfo(0, 9));
        EXPECT_EQ(contentOf(package, u"/a/b.XML"), "one");
        EXPECT_EQ(package.createInternalRelationship(u"t", URI(u"/a/B.xml"), u"").getID(), u"rId1");
    });
    session(OpenMode::Read, [](Package& package) {
        EXPECT_EQ(contentOf(package, u"/a/B.xml"), "one");
        EXPECT_EQ(contentOf(package, u"/empty"), "");
        EXPECT_EQ(package.getPart(PartName(u"/empty")).getContentType(), ContentType(u"a/c"));
        EXPECT_EQ(package.getRelationshipsByType(u"t").size(), 1U);
    });
}

TEST_F(PackageTest, KeepsEverythingThatIsNotSetAgain) {
    put(goodPlainPackage().with("untyped.bin", "untyped"));
    const auto before = bytes();
    session(OpenMode::Edit, [](Package&) {});
    EXPECT_EQ(bytes(), before);
    session(OpenMode::Edit, [](Package& package) {
        package.createPart(PartName(u"/new"), ContentType(u"a/b"), kInfo);
        package.deletePart(PartName(u"/new"));
        package.deleteRelationship(
            package.createInternalRelationship(u"t", URI(u"/x"), u"").getID());
        setContent(package.getPart(PartName(u"/data")), "other data");
        package.deletePart(PartName(u"/foreign/a.xml"));
    });
    session(OpenMode::Read, [](Package& package) {
        EXPECT_EQ(contentOf(package, u"/data"), "other data");
        EXPECT_EQ(contentOf(package, u"/foreign/_rels/a.xml.rels"), "not judged");
        EXPECT_EQ(
            contentOf(package, u"/_rels/.rels"),
            R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships"><Relationship Id="d" Type="urn:data" Target="/data"/></Relationships>)");
    });
    EXPECT_THAT(bytes(), HasSubstr("untyped.bin"));
}

TEST_F(PackageTest, KeepsTheOrderOfRelationships) {
    const auto ids = [](const Package& package) {
        std::u16string found;
        for (const auto& each : package.getRelationships())
            found += each.getID();
        return found;
    };
    session(OpenMode::Create, [&](Package& package) {
        for (const char16_t* id : {u"c", u"a", u"d", u"b"})
            package.createInternalRelationship(u"t", URI(u"/x"), id);
        package.deleteRelationship(u"a");
        package.deleteRelationship(u"b");
        package.createInternalRelationship(u"t", URI(u"/x"), u"a");
        EXPECT_EQ(ids(package), u"cda");
    });
    const auto before = bytes();
    session(OpenMode::Edit, [&](Package& package) {
        EXPECT_EQ(ids(package), u"cda");
        package.deleteRelationship(u"a");
        package.createInternalRelationship(u"t", URI(u"/x"), u"a");
    });
    EXPECT_EQ(bytes(), before) << "the same in the same order is no change";
}

TEST_F(PackageTest, RewritesTablesWithWhatTheyHeld) {
    put(goodPlainPackage().withRelationships(
        "<Relationship Id='x' Type='t' Target='http://x' TargetMode='External'/>"
        "<Relationship Id='rId1' Type='t' Target='/data'/>"));
    session(OpenMode::Edit, [](Package& package) {
        package.createPart(PartName(u"/b.xml"), ContentType(u"b/b"), kInfo);
        package.createInternalRelationship(u"u", URI(u"/b.xml"), u"");
        package.deletePart(PartName(u"/data"));
    });
    session(OpenMode::Read, [](Package& package) {
        const auto all = package.getRelationships();
        ASSERT_EQ(all.size(), 3U);
        EXPECT_EQ(all[0], Relationship(u"x", u"t", URI(u"http://x"), TargetMode::External));
        EXPECT_EQ(all[2], Relationship(u"rId2", u"u", URI(u"/b.xml"), TargetMode::Internal));
        EXPECT_EQ(package.getPart(PartName(u"/b.xml")).getContentType(), ContentType(u"b/b"));
        EXPECT_EQ(package.getPart(PartName(u"/foreign/a.xml")).getContentType(),
                  ContentType(u"application/xml"));
        EXPECT_FALSE(package.hasPart(PartName(u"/data")));
    });
}

TEST_F(PackageTest, PartsOfOneNameFollowEachOtherInOneSession) {
    put(goodPlainPackage());
    session(OpenMode::Edit, [](Package& package) {
        const PartName name(u"/foreign/a.xml");
        const auto old = package.getPart(name);
        package.deletePart(name);
        EXPECT_THROW(package.deletePart(name), Exception);
        auto second = package.createPart(PartName(u"/foreign/A.xml"), ContentType(u"a/b"), kInfo);
        setContent(second, "second");
        EXPECT_THROW(old.getInputStream(), Exception);
        package.deletePart(name);
        setContent(package.createPart(name, ContentType(u"a/c"), kInfo), "third");
        setContent(package.getPart(name), "fourth");
    });
    session(OpenMode::Read, [](Package& package) {
        EXPECT_EQ(contentOf(package, u"/foreign/a.xml"), "fourth");
        EXPECT_EQ(package.getPart(PartName(u"/foreign/a.xml")).getContentType(),
                  ContentType(u"a/c"));
    });
}

TEST_F(PackageTest, TakesOverAnItemThatWasNoPart) {
    put(goodPlainPackage().with("Untyped.bin", "old"));
    session(OpenMode::Edit, [](Package& package) {
        auto part = package.createPart(PartName(u"/untyped.BIN"), ContentType(u"a/b"), kInfo);
        EXPECT_EQ(contentOf(package, u"/untyped.bin"), "");
        setContent(part, "new");
    });
    session(OpenMode::Read,
            [](Package& package) { EXPECT_EQ(contentOf(package, u"/Untyped.bin"), "new"); });
}

TEST_F(PackageTest, RefusesChangesThatBreakARule) {
    put(goodPlainPackage());
    session(OpenMode::Edit, [](Package& package) {
        const auto create = [&](const char16_t* name) {
            package.createPart(PartName(name), ContentType(u"a/b"), kInfo);
        };
        const auto refused = [](const char* text) {
            return ThrowsMessage<Exception>(EndsWith(text));
        };
        EXPECT_THAT([&] { create(u"/DATA"); },
                    refused("(delete that one first, or choose another name)"));
        EXPECT_THAT(
            [&] { create(u"/data/x"); },
            refused("there cannot be a part /data/x beside /data: one name derives from the "
                    "other"));
        EXPECT_THAT([&] { create(u"/foreign"); }, refused("one name derives from the other"));
        EXPECT_THAT([&] { create(u"/_rels/.rels"); },
                    refused("is kept by the package; create relationships instead"));
        EXPECT_THAT([&] { create(u"/_rels/data.rels"); },
                    refused("\"application/vnd.openxmlformats-package.relationships+xml\""));
        EXPECT_THAT([&] { package.deletePart(PartName(u"/_rels/.rels")); },
                    refused("is kept by the package; delete relationships instead"));
        EXPECT_THAT([&] { package.getPart(PartName(u"/_rels/.rels")).getOutputStream(); },
                    refused("is kept by the package; change relationships instead"));
        EXPECT_THAT([&] { package.deletePart(PartName(u"/none")); },
                    refused("there is no part /none to delete"));
        EXPECT_THAT([&] { package.getPart(PartName(u"/none")); },
                    refused("there is no part /none"));
        EXPECT_THAT([&] { package.deleteRelationship(u"none"); },
                    refused("there is no relationship \"none\" to delete"));
        EXPECT_THAT([&] { package.createInternalRelationship(u"t", URI(u"/x"), u"d"); },
                    refused("relationship id \"d\" is taken; leave it empty to get a free one"));
    });
}

TEST_F(PackageTest, ChangesNothingThatIsOpenForReading) {
    put(goodPlainPackage());
    session(OpenMode::Read, [](Package& package) {
        const auto readOnly = ThrowsMessage<Exception>(
            EndsWith("the package is open for reading only; open it for editing"));
        EXPECT_THAT([&] { package.createPart(PartName(u"/x"), ContentType(u"a/b"), kInfo); },
                    readOnly);
        EXPECT_THAT([&] { package.deletePart(PartName(u"/data")); }, readOnly);
        EXPECT_THAT([&] { package.getPart(PartName(u"/data")).getOutputStream(); }, readOnly);
        EXPECT_THAT([&] { package.createInternalRelationship(u"t", URI(u"/x"), u""); }, readOnly);
        EXPECT_THAT([&] { package.deleteRelationship(u"d"); }, readOnly);
        EXPECT_THROW(package.open(OpenMode::Read), Exception);
    });
}

TEST_F(PackageTest, StreamsEndWithWhatTheyWorkOn) {
    put(goodPlainPackage());
    Package package(zip);
    package.open(OpenMode::Edit);
    auto part = package.getPart(PartName(u"/data"));
    const auto kept = part.getInputStream();
    part.getOutputStream()->write(std::as_bytes(std::span("never flushed")));
    EXPECT_EQ(contentOf(package, u"/data"), "data");
    setContent(part, "new");
    const auto stale = part.getInputStream();
    setContent(part, "newer");
    EXPECT_THAT([&] { read(*stale); },
                ThrowsMessage<Exception>(HasSubstr("/data: this stream has")));
    const auto current = part.getInputStream();
    const auto late = part.getOutputStream();
    late->write(std::as_bytes(std::span("late")));
    package.close();
    EXPECT_THROW(late->flush(), Exception);
    EXPECT_THROW(read(*current), Exception);
    EXPECT_EQ(read(*kept), "data");
    EXPECT_THROW(part.getInputStream(), Exception);
    EXPECT_THROW(package.close(), Exception);
    session(OpenMode::Read, [](Package& again) { EXPECT_EQ(contentOf(again, u"/data"), "newer"); });
}

TEST_F(PackageTest, ChangesNothingWithoutClose) {
    {
        Package package(zip);
        package.open(OpenMode::Create);
        setContent(package.createPart(PartName(u"/a"), ContentType(u"a/b"), kInfo), "a");
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
    Package package(zip);
    EXPECT_THROW(package.open(OpenMode::Edit), PackageNotFound);
    EXPECT_THROW(package.open(OpenMode::Read), PackageNotFound);
    EXPECT_THROW(package.open(7), Exception);
}

TEST_F(PackageTest, CapsWhatIsReadIntoMemory) {
    put(goodPlainPackage());
    session(OpenMode::Read, [](Package& package) {
        const auto part = package.getPart(PartName(u"/data"));
        EXPECT_EQ(readAll(part, 4).size(), 4U);
        EXPECT_THROW(readAll(part, 3), PartTooLarge);
    });
}

}  // namespace
}  // namespace opc::model
