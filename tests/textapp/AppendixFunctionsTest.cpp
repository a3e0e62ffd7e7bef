#include <appserialization/Functions.hpp>
#include <fl/i18n.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/SmallStack.hpp"

namespace appserialization {
namespace {

const ustring kDefault = u"(default)";

ustring element(const ustring& text, const ustring& name) {
    ustring value = kDefault;
    readXMLElement(text, name, value);
    return value;
}

ustring attribute(const ustring& text, const ustring& elementName, const ustring& name) {
    ustring value = kDefault;
    readXMLElementAttribute(text, elementName, name, value);
    return value;
}

std::vector<ustring> elements(const ustring& text, const ustring& name) {
    std::vector<ustring> values = {u"before"};
    readXMLElements(text, name, values);
    return values;
}

ustring repeated(const ustring& piece, std::size_t units) {
    ustring text;
    while (text.size() < units) {
        text += piece;
    }
    return text;
}

TEST(GetKAppAppendixSection, ReturnsTheBodyAsItStands) {
    const struct {
        const char* why;
        const char16_t* text;
        const char16_t* body;
    } rows[] = {
        {"white space and comment characters are kept", u"x\n%[s]\n% y\n%{\n% a \n%}\n",
         u"\n% a \n"},
        {"the first of several counts", u"%[s]%{1%}%[s]%{2%}", u"1"},
        {"a marker in the code before the appendix takes the first body behind it",
         u"disp('%[s]')\n%[s]\n%{\n1%}", u"\n1"},
        {"any brace opens", u"%[s] {1%}", u"1"},
        {"the opener's own percent sign and brace are no closer", u"%[s]%{%}", u""},
        {"names differ in case", u"%[S]%{1%}", u""},
        {"names are whole", u"%[ss]%{1%}", u""},
        {"without a closer there is no section", u"%[s]%{ the rest", u""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(getKAppAppendixSection(row.text, u"s"), row.body);
    }
}

TEST(ReadXMLElement, TakesTheFirstMatchAndUnescapesIt) {
    const struct {
        const char* why;
        const char16_t* text;
        const char16_t* value;
    } rows[] = {
        {"a start tag that begins with the name", u"<NameX>1</NameX><Name>2</Name>",
         u"1</NameX><Name>2"},
        {"a self-closed tag is a start tag", u"<Name/><Name>1</Name>", u"<Name>1"},
        {"empty differs from missing", u"<Name></Name>", u""},
        {"all five entities", u"<Name>&lt;&gt;&amp;&apos;&quot;</Name>", u"<>&'\""},
        {"&amp; comes after the angle brackets", u"<Name>&amp;lt;&amp;gt;</Name>", u"&lt;&gt;"},
        {"&amp; comes before the quotes", u"<Name>&amp;quot;&amp;apos;</Name>", u"\"'"},
        {"a replacement is not scanned again", u"<Name>&amp;amp;lt;</Name>", u"&amp;lt;"},
        {"an end tag before", u"</Name><Name>1", u"(default)"},
        {"missing", u"<Name>1", u"(default)"},
        {"other references stay", u"<Name>&#65;&nbsp;&lt</Name>", u"&#65;&nbsp;&lt"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(element(row.text, u"Name"), row.value);
    }
    ustring text = u"<Name>the text is the value</Name>";
    readXMLElement(text, u"Name", text);
    EXPECT_EQ(text, u"the text is the value");
}

TEST(ReadXMLElements, AppendsTrimmedTextsWithTheirEntities) {
    EXPECT_EQ(elements(u"<P>A</P><P> B\t</P>\n<P/><P>&amp;</P>", u"P"),
              (std::vector<ustring>{u"before", u"A", u"B", u"<P>&amp;"}));
    EXPECT_EQ(elements(u"", u"P"), std::vector<ustring>{u"before"});
}

TEST(ReadXMLElementAttribute, TakesTheFirstQuotedValueOnOneLine) {
    const struct {
        const char* why;
        const char16_t* text;
        const char16_t* value;
    } rows[] = {
        {"white space and line breaks around", u"<T\n x='2'\n a \n=\n '1' \n>", u"1"},
        {"double quotes are not recognised", u"<T a=\"1\">", u"(default)"},
        {"a value has no line end: the next pair of quotes counts", u"<T a='1\n' '2\r' '3'>", u" "},
        {"unescaped", u"<T a='&lt;&amp;quot;'>", u"<\""},
        {"a line separator is no line end", u"<T a='1\u20282'>", u"1\u20282"},
        {"the > before the value does not count", u"<T>a='1'", u"(default)"},
        {"no > behind", u"<T a='1'", u"(default)"},
        {"empty", u"<T a=''>", u""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(attribute(row.text, u"T", u"a"), row.value);
    }
}

TEST(AppendixFunctions, ThrowForTextThatIsNotUtf16WhereverItIs) {
    // Behind the match, and far enough to lie beyond a block of the vectorised check.
    ustring text = u"%[s]{1%}<P a='1'>1</P>\U0001F600" + repeated(u"x", 200);
    EXPECT_EQ(element(text, u"P"), u"1");
    text += char16_t(0xDC00);
    EXPECT_THROW(getKAppAppendixSection(text, u"s"), fl::i18n::ConversionError);
    EXPECT_THROW(element(text, u"P"), fl::i18n::ConversionError);
    EXPECT_THROW(elements(text, u"P"), fl::i18n::ConversionError);
    EXPECT_THROW(attribute(text, u"P", u"a"), fl::i18n::ConversionError);
    const ustring badName(1, char16_t(0xD800));
    EXPECT_THROW(getKAppAppendixSection(u"", badName), fl::i18n::ConversionError);
    EXPECT_EQ(element(u"", badName), kDefault);
}

TEST(AppendixFunctions, FindTextsAtEveryOffsetAndLength) {
    for (std::size_t before = 0; before < 140; ++before) {
        const ustring text = repeated(u"<", before) + u"<N>1</N>" + repeated(u"</N", 140 - before);
        ASSERT_EQ(element(text, u"N"), u"1") << before;
    }
    const ustring longName = repeated(u"ab", 200) + u"c";
    EXPECT_EQ(element(u"<" + repeated(u"ab", 250) + u"c>1</" + longName + u">", longName),
              kDefault);
    EXPECT_EQ(element(u"<<" + longName + u">1</ab</" + longName + u">", longName), u"1</ab");
}

// What is quadratic takes hours.
TEST(AppendixFunctions, AnswerHostileTextOnASmallStack) {
    constexpr std::size_t kUnits = 1 << 20;
    test_support::onSmallStack([] {
        for (const ustring piece :
             {u"%[s]{", u"{", u"<P", u"<P></P", u"'", u"''\n", u"<P a='", u"&amp;", u"%"}) {
            const ustring text = repeated(piece, kUnits);
            EXPECT_EQ(getKAppAppendixSection(u"%[s]%{" + text + u"%}", u"s"), text);
            element(u"<P>" + text + u"</P>", u"P");
            elements(text, u"P");
            attribute(u"<P a='\n" + text, u"P", u"a");
        }
        const ustring run = repeated(u"a", kUnits);
        EXPECT_EQ(element(run, repeated(u"a", kUnits / 2) + u"b"), kDefault);
    });
}

}  // namespace
}  // namespace appserialization
