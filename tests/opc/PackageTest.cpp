#include <opc/Package.hpp>

#include <foundation/SaveWatch.hpp>
#include <opc/Exception.hpp>
#include <opc/Streams.hpp>

#include "tests/opc/ZipTestSupport.hpp"
#include "tests/support/PackageBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace opc::model {
namespace {

using interfaces::OpenMode;
using test_support::goodPlainPackage;
using test_support::PackageBuilder;
using test_support::readFile;
using testing::EndsWith;
using testing::HasSubstr;
using testing::ThrowsMessage;

const StandardPartInfo kInfo(1, 0);

std::string contentOf(const Package& package, const char16_t* name) {
    return zip::readAll(*package.getPart(PartName(name)).getInputStream());
}

void setContent(Part part, std::string_view content) {
    const auto stream = part.getOutputStream();
    stream->write(std::as_bytes(std::span(content)));
    stream->flush();
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

TEST_F(PackageTest, CreatesAnEmptyPackageThatCanBeOpened) {
    put(goodPlainPackage().with("[Content_Types].xml", "broken; it is about to be replaced"));
    for (const auto mode : {OpenMode::Create, OpenMode::CreateNew}) {
        if (mode == OpenMode::CreateNew) std::filesystem::remove(directory.path() / "p.zip");
        session(mode, [](const Package&) {});
        session(OpenMode::Read, [](const Package& package) {
            EXPECT_THAT(package.getParts(), testing::IsEmpty());
        });
    }
}

TEST_F(PackageTest, CreatesNoNewFileWhereThereIsOne) {
    put(goodPlainPackage());
    Package package(zip);
    EXPECT_THAT(
        [&] { package.open(OpenMode::CreateNew); },
        ThrowsMessage<Exception>(HasSubstr("someone else created, changed or removed the file")));
}

TEST_F(PackageTest, CreatesNothingInThePlaceOfAnothersFile) {
    put(goodPlainPackage());
    session(OpenMode::Edit, [](const Package&) {});
    put(goodPlainPackage().with("other.bin", "another program's"));
    const auto before = bytes();
    Package package(zip);
    EXPECT_THAT(
        [&] { package.open(OpenMode::Create); },
        ThrowsMessage<Exception>(HasSubstr("someone else created, changed or removed the file")));
    EXPECT_EQ(bytes(), before);
}

TEST_F(PackageTest, ReadsNoPartThatIsLargerThanAsked) {
    put(goodPlainPackage());
    session(OpenMode::Read, [](const Package& package) {
        const auto part = package.getPart(PartName(u"/data"));
        EXPECT_EQ(readAll(part, 4).size(), 4u);
        EXPECT_THAT([&] { readAll(part, 3); },
                    ThrowsMessage<PartTooLarge>(
                        EndsWith("/data: its 4 bytes are more than the 3 that can be read")));
    });
}

TEST_F(PackageTest, KeepsEverythingThatIsNotSetAgain) {
    put(goodPlainPackage().with("untyped.bin", "untyped"));
    const auto before = bytes();
    session(OpenMode::Edit, [](Package& package) {
        package.createPart(PartName(u"/new"), ContentType(u"a/b"), kInfo);
        package.deletePart(PartName(u"/new"));
        package.deleteRelationship(
            package.createInternalRelationship(u"t", URI(u"/x"), u"").getID());
        package.deleteRelationship(u"d");
        package.createInternalRelationship(u"urn:data", URI(u"/data"), u"d");
    });
    EXPECT_EQ(bytes(), before) << "what comes to the same is no change";
    session(OpenMode::Edit, [](Package& package) {
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

TEST_F(PackageTest, ANewRelationshipsPartHasItsType) {
    put(goodPlainPackage()
            .without("_rels/.rels")
            .without("foreign/_rels/a.xml.rels")
            .withTypes(R"(<Override PartName="/data" ContentType="application/octet-stream"/>)"));
    session(OpenMode::Edit, [](Package& package) {
        package.createInternalRelationship(u"t", URI(u"/data"), u"");
        package.createExternalRelationship(u"t", URI(u"urn:x"), u"");
    });
    session(OpenMode::Read, [](Package& package) {
        const auto found = package.getRelationshipsByType(u"t");
        ASSERT_EQ(found.size(), 2u);
        EXPECT_EQ(found[0].getTargetMode(), TargetMode::Internal);
        EXPECT_EQ(found[1].getTargetMode(), TargetMode::External);
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

TEST_F(PackageTest, RefusesChangesThatBreakARule) {
    const auto create = [](Package& package, const char16_t* name) {
        package.createPart(PartName(name), ContentType(u"a/b"), kInfo);
    };
    const char* const readOnly = "the package is open for reading only; open it for editing";
    const struct {
        const char* complaint;
        std::function<void(Package&)> change;
        OpenMode mode = OpenMode::Edit;
    } rows[] = {
        {"/DATA (delete that one first, or choose another name)",
         [&](auto& p) { create(p, u"/DATA"); }},
        {"there cannot be a part /data/x beside /data: one name derives from the other",
         [&](auto& p) { create(p, u"/data/x"); }},
        {"there cannot be a part /foreign beside /foreign/_rels/a.xml.rels: one name derives from "
         "the other",
         [&](auto& p) { create(p, u"/foreign"); }},
        {"/untyped.BIN has no content type and so is not a part, and a new part of that name would "
         "replace it; give it one in [Content_Types].xml, or remove it from the zip file",
         [&](auto& p) { create(p, u"/untyped.BIN"); }},
        {"is kept by the package; create relationships instead",
         [&](auto& p) { create(p, u"/_rels/.rels"); }},
        {"is kept by the package; delete relationships instead",
         [](auto& p) { p.deletePart(PartName(u"/_rels/.rels")); }},
        {"is kept by the package; change relationships instead",
         [](auto& p) { p.getPart(PartName(u"/_rels/.rels")).getOutputStream(); }},
        {"there is no part /none", [](auto& p) { p.getPart(PartName(u"/none")); }},
        {"there is no relationship \"none\" to delete",
         [](auto& p) { p.deleteRelationship(u"none"); }},
        {"relationship id \"d\" is taken; leave it empty to get a free one",
         [](auto& p) { p.createInternalRelationship(u"t", URI(u"/x"), u"d"); }},
        {"relationship id \"a b\" is not an XML name; leave it empty to get a free one",
         [](auto& p) { p.createInternalRelationship(u"t", URI(u"/x"), u"a b"); }},
        {"the type of a relationship must not be empty",
         [](auto& p) { p.createInternalRelationship(u"", URI(u"/x"), u""); }},
        {readOnly, [&](auto& p) { create(p, u"/x"); }, OpenMode::Read},
        {readOnly, [](auto& p) { p.getPart(PartName(u"/data")).getOutputStream(); },
         OpenMode::Read},
        {"", [](auto& p) { p.open(OpenMode::Edit); }},
    };
    put(goodPlainPackage().with("Untyped.bin", "untyped"));
    for (const auto& row : rows) {
        session(row.mode, [&](Package& package) {
            EXPECT_THAT([&] { row.change(package); },
                        ThrowsMessage<Exception>(EndsWith(row.complaint)));
        });
    }
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
    EXPECT_THAT([&] { zip::readAll(*stale); },
                ThrowsMessage<Exception>(HasSubstr("/data: this stream has")));
    const auto current = part.getInputStream();
    const auto late = part.getOutputStream();
    late->write(std::as_bytes(std::span("late")));
    package.close();
    EXPECT_THROW(late->flush(), Exception);
    EXPECT_THROW(zip::readAll(*current), Exception);
    EXPECT_EQ(zip::readAll(*kept), "data");
    EXPECT_THROW(part.getInputStream(), Exception);
    EXPECT_THROW(package.close(), Exception);
    session(OpenMode::Read, [](Package& again) { EXPECT_EQ(contentOf(again, u"/data"), "newer"); });
}

// Bytes that do not shrink.
std::byte noise(std::size_t position) {
    return std::byte(position * position * 2'654'435'761u >> 21);
}

// Gives `size` bytes, then does something, and has come to its end.
class NoisyStream final : public InputStream {
public:
    // Content that is masked shrinks.
    NoisyStream(std::size_t size, std::byte mask, std::function<void()> atEnd)
        : left_(size), mask_(mask), atEnd_(std::move(atEnd)) {}
    std::size_t read(std::span<std::byte> buffer) override {
        if (left_ == 0) atEnd_();
        const std::size_t count = std::min({left_, buffer.size(), std::size_t{50'000}});
        std::ranges::generate(buffer.first(count), [this] { return noise(left_--) & mask_; });
        return count;
    }

private:
    std::size_t left_;
    std::byte mask_;
    std::function<void()> atEnd_;
};

constexpr std::byte kStored{0xFF}, kDeflated{0x0F};

void fail() {
    throw Exception("the disk is gone");
}

TEST_F(PackageTest, HasWhatWasReadFromAStreamThatFails) {
    put(goodPlainPackage());
    for (const std::byte mask : {kStored, kDeflated}) {
        for (const std::size_t size : {0u, 100'000u, 400'000u, 3'000'000u, 14'000'000u}) {
            SCOPED_TRACE(size);
            std::string expected(size, '\0');
            for (std::size_t left = size; char& c : expected)
                c = static_cast<char>(noise(left--) & mask);
            session(OpenMode::Edit, [&](Package& package) {
                const auto out = package.getPart(PartName(u"/data")).getOutputStream();
                NoisyStream in(size, mask, fail);
                EXPECT_THAT([&] { StreamHelper::copyStreamToStream(in, *out); },
                            ThrowsMessage<Exception>("the disk is gone"));
                out->write(std::as_bytes(std::span(std::string_view(" and more"))));
                out->flush();
            });
            session(OpenMode::Read, [&](const Package& package) {
                EXPECT_EQ(contentOf(package, u"/data"), expected + " and more");
            });
        }
    }
}

TEST_F(PackageTest, AStreamEndsInTheMiddleOfACopyToIt) {
    const char* const hasEnded = "/data: this stream has ended";
    const struct {
        std::function<void(Package&)> act;
        const char* complaint;
    } rows[] = {
        {[](Package& package) { package.close(); }, hasEnded},
        {[](Package& package) { package.deletePart(PartName(u"/data")); }, hasEnded},
        {[](Package& package) { package.close(), fail(); }, "the disk is gone"},
    };
    for (const auto& row : rows) {
        put(goodPlainPackage());
        const zippackage::ZipPhysicalPackage file(directory.name("p.zip"), true);
        Package package(file);
        package.open(OpenMode::Edit);
        const auto out = package.getPart(PartName(u"/data")).getOutputStream();
        NoisyStream in(5'000'000, kDeflated, [&] { row.act(package); });
        EXPECT_THAT([&] { StreamHelper::copyStreamToStream(in, *out); },
                    ThrowsMessage<Exception>(HasSubstr(row.complaint)));
        EXPECT_THROW(out->write({}), Exception);
    }
}

TEST_F(PackageTest, TakesNoMoreThanThereIsRoomFor) {
    put(goodPlainPackage());
    session(OpenMode::Edit, [](Package& package) {
        const auto out = package.getPart(PartName(u"/data")).getOutputStream();
        EXPECT_THROW(out->writeFrom([](std::span<std::byte> buffer) { return buffer.size() + 1; }),
                     Exception);
    });
}

TEST_F(PackageTest, IsNotChangedByAFunctionThatFollowsASave) {
    put(goodPlainPackage());
    Package package(zip);
    package.open(OpenMode::Edit);
    auto part = package.getPart(PartName(u"/data"));
    const auto out = part.getOutputStream();
    std::size_t reports = 0;
    const auto change = [&] {
        EXPECT_THROW(out->write({}), Exception);
        EXPECT_THROW(out->flush(), Exception);
        EXPECT_THROW(part.getOutputStream(), Exception);
        EXPECT_THROW(package.createPart(PartName(u"/other"), ContentType(u"a/b"), kInfo),
                     Exception);
        EXPECT_THROW(package.deletePart(part.getName()), Exception);
        EXPECT_THROW(package.createInternalRelationship(u"urn:t", URI(u"/data"), u""), Exception);
        EXPECT_THROW(package.close(), Exception);
        EXPECT_THROW(package.open(OpenMode::Read), Exception);
    };
    // Once on the thread of the save, and once on another one while that waits.
    const foundation::SaveWatch watch([&](std::uint64_t) {
        if (++reports % 2 == 0) {
            change();
        } else {
            std::thread(change).join();
        }
        return true;
    });
    NoisyStream in(8'000'000, kDeflated, [] {});
    StreamHelper::copyStreamToStream(in, *out);
    EXPECT_GT(reports, 0u);
    setContent(part, "new");
    reports = 0;
    package.close();
    EXPECT_GT(reports, 0u);
    session(OpenMode::Read, [](const Package& again) {
        EXPECT_EQ(contentOf(again, u"/data"), "new");
        EXPECT_TRUE(again.getRelationshipsByType(u"urn:t").empty());
        EXPECT_FALSE(again.hasPart(PartName(u"/other")));
    });
}

}  // namespace
}  // namespace opc::model
