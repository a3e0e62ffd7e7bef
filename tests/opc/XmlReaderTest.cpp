#include "platform/opc/xml/XmlReader.hpp"

#include <opc/Exception.hpp>

#include "platform/opc/xml/XmlWriter.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace opc::xml {
namespace {

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
