#include "platform/opc/xml/XmlReader.hpp"

#include <opc/Exception.hpp>

#include "platform/opc/xml/XmlWriter.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace opc::xml {
namespace {

using testing::ThrowsMessage;

std::string repeated(std::string_view text, std::size_t count) {
    std::string all;
    all.reserve(text.size() * count);
    for (std::size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

std::string utf16(std::string_view ascii, bool bigEndian) {
    std::string bytes = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (const char c : ascii)
        bytes += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
    return bytes;
}

std::string manyNames(std::size_t count) {
    std::string all = "<a>";
    for (std::size_t i = 1; i < count; ++i)
        all += "<n" + std::to_string(i) + "/>";
    return all + "</a>";
}

TEST(XmlCheck, AcceptsWhatPartsMayBe) {
    const std::string documents[] = {
        "<a/>",
        "\xEF\xBB\xBF<?xml version='1.0' encoding='utf-8' standalone='yes'?><a/>",
        utf16("<?xml version='1.0' encoding='UTF-16'?><a/>", false),
        utf16("<a/>", true),
        repeated("<a>", kMaxDepth) + repeated("</a>", kMaxDepth),
        manyNames(kMaxDistinctNames),
        "<a>&#x1F600;&lt;<![CDATA[<x>]]><!-- c --><?p i?></a>",
    };
    for (const auto& document : documents)
        EXPECT_NO_THROW(check(document, "f: /p"));
}

TEST(XmlCheck, NamesPlaceAndRule) {
    const struct {
        std::string document;
        const char* message;
    } rows[] = {
        {"", "f: /p: line 1, column 1: no element found"},
        {"<a>\n <b></a>", "f: /p: line 2, column 7: mismatched tag"},
        {"<a>\xFF</a>", "f: /p: line 1, column 4: not well-formed (invalid token)"},
        {"<a>&#1;</a>", "f: /p: line 1, column 4: reference to invalid character number"},
        {"<x:a/>", "f: /p: line 1, column 1: unbound prefix"},
        {"<a b='' b=''/>", "f: /p: line 1, column 9: duplicate attribute"},
        {"<!DOCTYPE a><a/>", "f: /p: line 1, column 12: a document type is not allowed; remove it"},
        {"<!DOCTYPE a [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><a>&e;</a>",
         "f: /p: line 1, column 13: a document type is not allowed; remove it"},
        {"<?xml version='1.0' encoding='ISO-8859-1'?><a/>",
         "f: /p: line 1, column 1: encoding \"ISO-8859-1\" is not allowed; save it as UTF-8"},
        {"<?xml version='1.1'?><a/>",
         "f: /p: line 1, column 1: XML version \"1.1\" is not supported; expected \"1.0\""},
        {repeated("<a>", 65), "f: /p: line 1, column 193: elements nest deeper than 64"},
        {manyNames(1001), "f: /p: line 1, column 6889: more than 1,000 distinct names"},
    };
    for (const auto& row : rows) {
        EXPECT_THAT([&] { check(row.document, "f: /p"); }, ThrowsMessage<Exception>(row.message));
    }
}

TEST(XmlCheck, BoundsWhatMakesParsersSlow) {
    std::string declarations, attributes;
    for (int i = 0; i < 40; ++i) {
        declarations += " xmlns:p" + std::to_string(i) + "='u'";
        attributes += " a" + std::to_string(i) + "=''";
    }
    const struct {
        const char* why;
        std::string document;
    } rows[] = {
        {"attributes and declarations of one element", "<a" + declarations + attributes + "/>"},
        {"elements", "<a>" + repeated("<b/>", kMaxElements) + "</a>"},
        {"instructions", "<a>" + repeated("<?b?>", kMaxOtherNodes + 1) + "</a>"},
        {"attributes",
         "<a>" + repeated("<b" + attributes + "/>", kMaxOtherNodes / 40 + 1) + "</a>"},
        {"bytes", "<a>" + std::string(kMaxBytes, ' ') + "</a>"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_THROW(check(row.document, "f: /p"), Exception);
    }
}

// Writes down what it is told.
class Recorder final : public Handler {
public:
    void start(const StartTag& tag) override {
        log += "<" + std::string(tag.name().nameSpace) + "|" + std::string(tag.name().local);
        for (const auto& attribute : tag.attributes()) {
            log += " " + std::string(attribute.name.nameSpace) + "|" +
                   std::string(attribute.name.local) + "=" + std::string(attribute.value);
        }
        if (const auto value = tag.find("type")) {
            const auto name = tag.resolve(*value);
            log += name ? " ->" + std::string(name->nameSpace) + "|" + std::string(name->local)
                        : " ->?";
        }
        log += ">";
    }
    void end() override { log += "</>"; }
    void text(std::string_view characters) override { log += characters; }
    std::string log;
};

TEST(XmlRead, ExpandsNamesInTheirScope) {
    Recorder recorder;
    read(
        "<a xmlns='u' xmlns:p='v'><p:b p:c='1' type='p:t'>x<![CDATA[<]]></p:b>"
        "<d xmlns:p='w' type='p:t'/><e xmlns='' type='q:t'/></a>",
        "f", recorder);
    EXPECT_EQ(
        recorder.log,
        "<u|a><v|b v|c=1 |type=p:t ->v|t>x<</><u|d |type=p:t ->w|t></><|e |type=q:t ->?></></>");
}

TEST(XmlWriter, WritesValuesThatReadBackAsGiven) {
    const std::string value = "a\r\n\tb \"<&>]]>' \xF0\x9F\x98\x80 ";
    XmlWriter writer;
    writer.start("r");
    writer.attribute("v", value);
    writer.text(value);
    writer.end("r");
    Recorder recorder;
    read(std::move(writer).take(), "f", recorder);
    EXPECT_EQ(recorder.log, "<|r |v=" + value + ">" + value + "</>");
}

}  // namespace
}  // namespace opc::xml
