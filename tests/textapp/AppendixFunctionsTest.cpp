#include <appserialization/Functions.hpp>
#include <fl/i18n.hpp>

#include <alloca.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "tests/support/SmallStack.hpp"

namespace appserialization {
namespace {

using std::regex_constants::error_type;

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

// The error of the lookups when `left` bytes of the small stack are not in use; 0 when there is
// none.
error_type errorOf(const ustring& text, const ustring& name,
                   std::size_t left = test_support::kSmallStack) {
    error_type code{};
    test_support::onSmallStack([&] {
        auto* const used =
            static_cast<volatile char*>(alloca(test_support::kSmallStack - left + 1));
        used[0] = 0;  // keeps it
        try {
            getKAppAppendixSection(text, name);
            elements(text, name);
            attribute(text, name, name);
            element(text, name);
        } catch (const std::regex_error& error) {
            code = error.code();
        }
    });
    return code;
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
        {"the opener's own percent sign and brace are no closer", u"%[s]%{%}", u""},
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
        {"a self-closed tag is a start tag", u"<Name/><Name>1</Name>", u"<Name>1"},
        {"empty differs from missing", u"<Name></Name>", u""},
        {"all five entities", u"<Name>&lt;&gt;&amp;&apos;&quot;</Name>", u"<>&'\""},
        {"&amp; comes after the angle brackets", u"<Name>&amp;lt;&amp;gt;</Name>", u"&lt;&gt;"},
        {"&amp; comes before the quotes", u"<Name>&amp;quot;&amp;apos;</Name>", u"\"'"},
        {"missing", u"<Name>1", u"(default)"},
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
        {"a line separator is no line end", u"<T a='1\u20282'>", u"1\u20282"},
        {"the > before the value does not count", u"<T>a='1'", u"(default)"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(attribute(row.text, u"T", u"a"), row.value);
    }
}

TEST(AppendixFunctions, ThrowForTextThatIsNotUtf16WhereverItIs) {
    ustring text = u"%[s]{1%}<P a='1'>1</P>\U0001F600";
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

TEST(AppendixFunctions, TakeNamesAsPatterns) {
    EXPECT_EQ(element(u"<Name>&amp;</Name>", u"N.m?e"), u"&");
    EXPECT_EQ(element(u"<Name>1</Name>", u"(N)ame"), u"N") << "the name's group is the first";
    EXPECT_EQ(getKAppAppendixSection(u"%[ab]{1%}", u"[ab]+"), u"1");
    EXPECT_EQ(getKAppAppendixSection(u"%[]}]{1%}", u"]}"), u"1") << "no pattern";
    EXPECT_EQ(attribute(u"<T ab='1'>", u"T", u"a."), u"1");
    EXPECT_EQ(elements(u"<Na> 1 </Na><Nb>2</Nb>", u"N[ab]"),
              (std::vector<ustring>{u"before", u"1", u"2"}));
}

TEST(AppendixFunctions, RefusePatternsThatAreMalformedOrCostTooMuch) {
    const ustring letters(1 << 20, u'a');
    const struct {
        const char* why;
        ustring text;
        ustring name;
        error_type code;
    } rows[] = {
        {"a long gap", u"<N" + letters + u">", u".", std::regex_constants::error_stack},
        {"exponential alternatives", u"%[" + letters.substr(0, 40), u"(a|a)*b",
         std::regex_constants::error_complexity},
        {"matches of nothing", u"x", u"a||b", std::regex_constants::error_complexity},
        {"the deepest pattern", u"x", ustring(32, u'(') + ustring(32, u')'), error_type{}},
        {"a long pattern", u"x", ustring(65, u'('), std::regex_constants::error_stack},
        {"a pattern that its counts make long", u"x", u"((|){9}){9}",
         std::regex_constants::error_stack},
        {"a count beyond any number", u"x", u"a{99999999999999999999}",
         std::regex_constants::error_stack},
        {"an open group", u"x", u"(a", std::regex_constants::error_paren},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(errorOf(row.text, row.name), row.code);
    }
}

TEST(AppendixFunctions, ThrowWhenTheCallerHasLeftLittleStackForAPattern) {
    const ustring text = u"<N" + ustring(100'000, u'a') + u">1</N>";
    constexpr std::size_t kQuarter = test_support::kSmallStack / 4;
    EXPECT_EQ(errorOf(text, u".", kQuarter), std::regex_constants::error_stack);
    EXPECT_EQ(errorOf(u"<N>1</N>", u".", 3 * kQuarter), error_type{});
}

}  // namespace
}  // namespace appserialization
