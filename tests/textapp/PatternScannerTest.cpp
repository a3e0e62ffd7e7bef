#include <appserialization/Functions.hpp>

#include <gtest/gtest.h>

#include <alloca.h>

#include <regex>
#include <string>
#include <vector>

#include "tests/support/SmallStack.hpp"

namespace appserialization {
namespace {

using std::regex_constants::error_type;

ustring element(const ustring& text, const ustring& name) {
    ustring value = u"(default)";
    readXMLElement(text, name, value);
    return value;
}

// The error of the lookups when `left` bytes of the small stack are not in use; 0 when there is none.
error_type errorOf(const ustring& text, const ustring& name,
                   std::size_t left = test_support::kSmallStack) {
    error_type code{};
    test_support::onSmallStack([&] {
        auto* const used =
            static_cast<volatile char*>(alloca(test_support::kSmallStack - left + 1));
        used[0] = 0;  // keeps it
        try {
            std::vector<ustring> values;
            getKAppAppendixSection(text, name);
            readXMLElements(text, name, values);
            readXMLElementAttribute(text, name, name, values.emplace_back());
            element(text, name);
        } catch (const std::regex_error& error) {
            code = error.code();
        }
    });
    return code;
}

TEST(PatternScanner, TakesNamesAsPatterns) {
    EXPECT_EQ(element(u"<Name>&amp;</Name>", u"N.m?e"), u"&");
    EXPECT_EQ(element(u"<Name>1</Name>", u"(N)ame"), u"N") << "the name's group is the first";
    EXPECT_EQ(getKAppAppendixSection(u"%[ab]{1%}", u"[ab]+"), u"1");
    EXPECT_EQ(getKAppAppendixSection(u"%[]}]{1%}", u"]}"), u"1") << "no pattern";
    ustring value;
    readXMLElementAttribute(u"<T ab='1'>", u"T", u"a.", value);
    EXPECT_EQ(value, u"1");
    std::vector<ustring> values;
    readXMLElements(u"<Na> 1 </Na><Nb>2</Nb>", u"N[ab]", values);
    EXPECT_EQ(values, (std::vector<ustring>{u"1", u"2"}));
}

TEST(PatternScanner, RefusesPatternsThatAreMalformedOrCostTooMuch) {
    const ustring letters(1 << 20, u'a');
    ustring stars = ustring(21, u'(');
    for (int i = 0; i < 21; ++i) {
        stars += u")*";
    }
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
        {"the deepest search without a step", u"<", stars, std::regex_constants::error_complexity},
        {"the deepest pattern", u"x", ustring(32, u'(') + ustring(32, u')'), error_type{}},
        {"a long pattern", u"x", ustring(65, u'('), std::regex_constants::error_stack},
        {"a pattern that its counts make long", u"x", u"((|){9}){9}",
         std::regex_constants::error_stack},
        {"an open group", u"x", u"(a", std::regex_constants::error_paren},
        {"an open bracket", u"x", u"[a", std::regex_constants::error_brack},
        {"a count beyond any number", u"x", u"a{99999999999999999999}",
         std::regex_constants::error_stack},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(errorOf(row.text, row.name), row.code);
    }
}

TEST(PatternScanner, ThrowsWhenTheCallerHasLeftLittleStack) {
    const ustring text = u"<N" + ustring(100'000, u'a') + u">1</N>";
    constexpr std::size_t kEighth = test_support::kSmallStack / 8;
    for (const std::size_t eighths : {2u, 3u, 4u})
        EXPECT_EQ(errorOf(text, u".", eighths * kEighth), std::regex_constants::error_stack);
    EXPECT_EQ(errorOf(u"<N>1</N>", u".", 6 * kEighth), error_type{});
}

}  // namespace
}  // namespace appserialization
