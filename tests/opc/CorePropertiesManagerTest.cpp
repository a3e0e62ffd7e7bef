#include <opc/CorePropertiesManager.hpp>

#include <opc/Exception.hpp>

#include "platform/opc/src/package/W3CDate.hpp"
#include "platform/opc/src/xml/XmlReader.hpp"
#include "tests/support/PackageBuilder.hpp"
#include "tests/support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace opc::qzservices {
namespace {

using foundation::clock::Seconds;
using interfaces::OpenMode;
using test_support::goodPlainPackage;
using test_support::kCorePropertiesRelationship;
using test_support::PackageBuilder;
using testing::EndsWith;
using testing::HasSubstr;
using testing::ThrowsMessage;

PackageBuilder withCore(const std::string& properties) {
    return goodPlainPackage()
        .withRelationships(kCorePropertiesRelationship)
        .with(
            "docProps/core.xml",
            "<cp:coreProperties xmlns:cp='http://schemas.openxmlformats.org/package/2006/metadata/"
            "core-properties' xmlns:dc='http://purl.org/dc/elements/1.1/' "
            "xmlns:dcterms='http://purl.org/dc/terms/' "
            "xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance'>" +
                properties + "</cp:coreProperties>");
}

class CorePropertiesManagerTest : public testing::Test {
protected:
    CoreProperties read() {
        model::Package package(zip);
        package.open(OpenMode::Read);
        return CorePropertiesManager(package, 0).getCoreProperties();
    }
    CoreProperties readFrom(const PackageBuilder& builder) {
        directory.write("p.zip", builder.bytes());
        zip = zippackage::ZipPhysicalPackage(directory.name("p.zip"), true);
        return read();
    }
    void write(const CoreProperties& properties, OpenMode mode = OpenMode::Edit) {
        model::Package package(zip);
        package.open(mode);
        CorePropertiesManager(package, 0).setCoreProperties(properties);
        package.close();
    }
    std::string part(const char16_t* name) {
        model::Package package(zip);
        package.open(OpenMode::Read);
        const auto bytes = readAll(package.getPart(model::PartName(name)), 1 << 20);
        return {bytes.begin(), bytes.end()};
    }

    test_support::TemporaryDirectory directory;
    zippackage::ZipPhysicalPackage zip{directory.name("p.zip"), true};
};

TEST_F(CorePropertiesManagerTest, ValuesReadBackAsWritten) {
    CoreProperties all;
    all.setTitle(u"a\r\n\tb]]>&\U0001F600 ");
    all.setDescription(u"");
    all.setCreatedBy(u"<author>");
    all.setVersion(u"1.0");
    all.setContentType(u"a/b");
    all.setLastModifiedTime(Seconds(std::chrono::seconds(1'700'000'000)));
    all.setContentTypeFriendlyName(u"Friendly & Name");
    all.setKORVALRelease(u"R2026b");
    all.setKORVALReleaseInfo(CoreProperties::makeLegacyKORVALReleaseInfo(u"R2016a"));
    write(all, OpenMode::Create);
    EXPECT_EQ(read(), all);
    EXPECT_EQ(part(u"/docProps/core.xml"),
              R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<cp:coreProperties xmlns:cp="http://schemas.openxmlformats.org/package/2006/metadata/core-properties" xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:dcterms="http://purl.org/dc/terms/" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"><dc:title>a&#13;
	b]]&gt;&amp;😀 </dc:title><dc:creator>&lt;author&gt;</dc:creator><dc:description/><dcterms:modified xsi:type="dcterms:W3CDTF">2023-11-14T22:13:20Z</dcterms:modified><cp:contentType>a/b</cp:contentType><cp:version>1.0</cp:version></cp:coreProperties>)");
    EXPECT_EQ(part(u"/docProps/korval.xml"),
              R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<hostProperties xmlns="http://schemas.quorvane.com/package/2026/hostProperties"><contentTypeFriendlyName>Friendly &amp; Name</contentTypeFriendlyName><release>R2026b</release><releaseInfo legacy="true">R2016a</releaseInfo></hostProperties>)");
}

TEST_F(CorePropertiesManagerTest, KeepsTheStandardsOtherProperties) {
    const std::string others =
        "<cp:category>c</cp:category><cp:keywords>a <cp:value>b</cp:value> "
        "c<cp:value/></cp:keywords>"
        "<dc:language/><cp:lastPrinted>2020-01-01T00:00:00Z</cp:lastPrinted>"
        "<dcterms:created xsi:type='dcterms:W3CDTF'>2019-02</dcterms:created>";
    auto properties = readFrom(withCore(others));
    properties.setTitle(u"t");
    write(properties);
    EXPECT_EQ(read(), properties);
    const auto written = part(u"/docProps/core.xml");
    for (const char* kept :
         {"<cp:category>c</cp:category>", "a <cp:value>b</cp:value> c<cp:value/></cp:keywords>",
          "<dc:language/>", ">2020-01-01T00:00:00Z</cp:lastPrinted>",
          ">2019-02</dcterms:created>"}) {
        EXPECT_THAT(written, HasSubstr(kept));
    }
}

TEST_F(CorePropertiesManagerTest, KeepsWhatLaterHostsAdd) {
    const auto withHost = [](const std::string& properties) {
        return goodPlainPackage()
            .withRelationships(
                R"(<Relationship Id="h" Type="http://schemas.quorvane.com/package/2026/relationships/hostProperties" Target="docProps/korval.xml"/>)")
            .with("docProps/korval.xml",
                  "<h:hostProperties xmlns='urn:o' xmlns:t='urn:types' xml:lang='en' "
                  "xmlns:h='http://schemas.quorvane.com/package/2026/hostProperties'>" +
                      properties + "</h:hostProperties>");
    };
    auto properties = readFrom(withHost(
        "<h:later>1 &lt; 2<h:in t:type='t:A'/></h:later><h:release>R2026b</h:release><h:later/>"
        "<x xml:lang='en' a='&quot;'><y xmlns='urn:y' xmlns:t='urn:t'/><z xmlns=''/></x>"));
    EXPECT_EQ(properties.getKORVALRelease(), u"R2026b");
    properties.setKORVALRelease(u"R2027a");
    write(properties);
    EXPECT_EQ(read(), properties);
    EXPECT_THAT(
        part(u"/docProps/korval.xml"),
        EndsWith(
            R"(<h:hostProperties xmlns="urn:o" xmlns:t="urn:types" )"
            R"(xmlns:h="http://schemas.quorvane.com/package/2026/hostProperties" xml:lang="en">)"
            R"(<h:release>R2027a</h:release><h:later>1 &lt; 2<h:in t:type="t:A"/></h:later><h:later/>)"
            R"(<x xml:lang="en" a="&quot;"><y xmlns="urn:y" xmlns:t="urn:t"/><z xmlns=""/></x>)"
            R"(</h:hostProperties>)"));
    EXPECT_THAT([&] { readFrom(withHost("<h:release/><h:release/>")); },
                ThrowsMessage<Exception>(EndsWith("a second release; remove one of them")));
}

TEST_F(CorePropertiesManagerTest, ReadsTheHostPartThatASaveReplaces) {
    const auto host = [](const std::string& release) {
        return "<hostProperties "
               "xmlns='http://schemas.quorvane.com/package/2026/hostProperties'><release>" +
               release + "</release></hostProperties>";
    };
    const auto link = [](const std::string& id) {
        return "<Relationship Id='" + id +
               "' Type='http://schemas.quorvane.com/package/2026/relationships/hostProperties' "
               "Target='" +
               id + ".xml'/>";
    };
    auto properties = readFrom(goodPlainPackage()
                                   .withRelationships(link("none") + link("first") + link("second"))
                                   .with("first.xml", host("first"))
                                   .with("second.xml", host("second")));
    EXPECT_EQ(properties.getKORVALRelease(), u"first");
    properties.setKORVALRelease(u"new");
    write(properties);
    EXPECT_THAT(part(u"/first.xml"), HasSubstr("new"));
    EXPECT_THAT(part(u"/second.xml"), HasSubstr("second"));
}

TEST_F(CorePropertiesManagerTest, RefusesToChooseBetweenCoreProperties) {
    std::string second(kCorePropertiesRelationship);
    second.replace(second.find("core"), 4, "more");
    const auto several =
        withCore("").withRelationships(std::string(kCorePropertiesRelationship) + second);
    EXPECT_THAT([&] { readFrom(several); },
                ThrowsMessage<Exception>(
                    EndsWith("2 relationships lead to core properties; remove all but one")));
}

TEST_F(CorePropertiesManagerTest, ReplacesARelationshipThatLeadsNowhereButNoForeignPart) {
    for (const std::string target : {"::", "gone.xml", "http://a/core.xml' TargetMode='External"}) {
        const auto before =
            readFrom(goodPlainPackage()
                         .withRelationships("<Relationship Id='c' "
                                            "Type='http://schemas.openxmlformats.org/package/2006/"
                                            "relationships/metadata/core-properties' Target='" +
                                            target + "'/>")
                         .with("docProps/core.xml", "<not-ours/>"));
        EXPECT_EQ(before, CoreProperties()) << target;
        write(CoreProperties());
        EXPECT_EQ(part(u"/docProps/core.xml"), "<not-ours/>");
        EXPECT_THAT(part(u"/docProps/core1.xml"), HasSubstr("cp:coreProperties"));
    }
}

TEST_F(CorePropertiesManagerTest, RefusesWhatCorePropertiesMayNotBe) {
    EXPECT_THAT(
        [&] {
            readFrom(withCore("").withTypes(
                "<Default Extension='xml' ContentType='application/xml'/><Default Extension='rels' "
                "ContentType='application/vnd.openxmlformats-package.relationships+xml'/>"));
        },
        ThrowsMessage<Exception>(
            EndsWith("/docProps/core.xml: is related as core properties, but has the content type "
                     "\"application/xml\"; expected "
                     "\"application/vnd.openxmlformats-package.core-properties+xml\"")));
    EXPECT_THAT(
        [&] {
            readFrom(
                withCore("<dc:title xmlns:mc='http://schemas.openxmlformats.org/"
                         "markup-compatibility/2006'/>"));
        },
        ThrowsMessage<Exception>(
            EndsWith("declares the namespace http://schemas.openxmlformats.org/"
                     "markup-compatibility/2006, which core properties may not use; remove it")));
}

TEST_F(CorePropertiesManagerTest, TakesAnyPrefixInItsScopeForTheTypeOfADate) {
    const auto read = readFrom(withCore(
        "<t:modified xmlns:t='http://purl.org/dc/terms/' xsi:type='t:W3CDTF'>1970</t:modified>"));
    EXPECT_EQ(read.getLastModifiedTime(), Seconds());
}

TEST_F(CorePropertiesManagerTest, ARefusedSetChangesNothing) {
    readFrom(goodPlainPackage());
    const auto before = test_support::readFile(directory.path() / "p.zip");
    CoreProperties bad, late, large;
    bad.setTitle(u"good");
    bad.setKORVALRelease(u"bad\x01");
    late.setLastModifiedTime(Seconds(std::chrono::sys_days(std::chrono::year(10000) / 1 / 1)));
    large.setTitle(ustring(xml::kMaxBytes, u'x'));
    const std::pair<CoreProperties, const char*> rows[] = {
        {bad,
         "/docProps/korval.xml: release: the character U+0001 at index 3 is not allowed in XML; "
         "remove it"},
        {late,
         "/docProps/core.xml: modified: a time of 253402300800 seconds since 1970 cannot be "
         "written; "
         "expected one in the years 0 to 9999"},
        {large,
         "/docProps/core.xml: once written: the XML is larger than 16 MiB; remove some of it"},
    };
    model::Package package(zip);
    package.open(OpenMode::Edit);
    CorePropertiesManager manager(package, 0);
    for (const auto& row : rows) {
        EXPECT_THAT([&] { manager.setCoreProperties(row.first); },
                    ThrowsMessage<Exception>(EndsWith(row.second)));
    }
    // The years of these, if cut to 16 bits, could be written.
    for (const std::int64_t milliseconds : {2'100'000'000'000, -2'067'929'913'600}) {
        late.setLastModifiedTime(Seconds(std::chrono::seconds(milliseconds)));
        EXPECT_THROW(manager.setCoreProperties(late), Exception);
    }
    package.close();
    EXPECT_EQ(test_support::readFile(directory.path() / "p.zip"), before);
}

TEST(W3CDate, ReadsEachPrecision) {
    const std::pair<const char*, std::optional<long>> rows[] = {
        {"1970", 0},
        {"1970-01-01T00:00:01.987Z", 1},
        {"1970-01-01T01:00:00+01:00", 0},
        {"2020-02-29T23:59:59Z", 1583020799},
        {"0000-01-01", -62167219200},
        {"1970-01-31", 30 * 86400},
        {"1970-01-01T00:00:00-01:30", 5400},
        {"1970-02-30", {}},
        {"9999-12-31T23:59:59Z", 253402300799},
        {"1970-00", {}},
        {"1970-01-01T00:00", {}},
        {"1970-01-01T24:00:00Z", {}},
        {"1970-01-01T00:00:00Z ", {}},
        {"1970-01-01T00:00:00+1:00", {}},
    };
    for (const auto& [text, seconds] : rows) {
        const auto read = parseW3CDate(text);
        EXPECT_EQ(read ? std::optional(read->time_since_epoch().count()) : std::nullopt, seconds)
            << text;
    }
}

}  // namespace
}  // namespace opc::qzservices
