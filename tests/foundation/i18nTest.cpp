#include <fl/i18n.hpp>

#include <gtest/gtest.h>

namespace fl::i18n {
namespace {

constexpr char16_t kFffd = 0xFFFD;

const struct {
    std::string bytes;
    std::size_t index;
    ustring replaced;
} kIllFormedUtf8[] = {
    {"\xE0\x80\xAF", 0, {kFffd, kFffd, kFffd}},  // overlong
    {"\xED\xA0\x80", 0, {kFffd, kFffd, kFffd}},  // a surrogate
    {"\xF4\x90\x80\x80", 0, {kFffd, kFffd, kFffd, kFffd}},
    {"x\xF0\x9F\x98", 1, {u'x', kFffd}},
    {"\xEF\xBF\xBD\xC3\xA4\xFF", 5, {kFffd, u'\u00E4', kFffd}},
    {"a\xF1\x80\x80\xE1\x80\xC2"
     "b\x80z",
     1,
     {u'a', kFffd, kFffd, kFffd, u'b', kFffd, u'z'}},
};

template <class Convert, class Text>
std::size_t errorIndex(Convert convert, const Text& text) {
    try {
        convert(text);
    } catch (const ConversionError& error) {
        return error.index();
    }
    return std::string::npos;
}

// Code units in front of what is tested, around the ends of the pieces that are converted at once.
const std::size_t kFronts[] = {0, 1, 1022, 1023, 1024, 2044, 2045, 2046, 2047, 2048, 4095};

TEST(Utf8ToUstring, ReplacesEachMaximalSubpartAndStrictlyNamesTheFirst) {
    for (const char16_t filler : {u'x', u'\u00E4'}) {
        for (const std::size_t length : kFronts) {
            const ustring units(length, filler);
            const std::string front = ustring_to_utf8(units);
            for (const auto& row : kIllFormedUtf8) {
                SCOPED_TRACE(testing::PrintToString(row.bytes) + std::to_string(length));
                EXPECT_EQ(utf8_to_ustring(front + row.bytes), units + row.replaced);
                EXPECT_EQ(errorIndex(utf8_to_ustring_strict, front + row.bytes),
                          front.size() + row.index);
            }
        }
    }
}

TEST(UstringToUtf8, RefusesAnUnpairedSurrogateAtEveryPlace) {
    const ustring lead(1, char16_t(0xD83D));
    const ustring trail(1, char16_t(0xDE00));
    for (const char16_t filler : {u'x', u'\u00E4'}) {
        for (const std::size_t length : kFronts) {
            SCOPED_TRACE(length);
            const ustring text(length, filler);
            EXPECT_EQ(errorIndex(ustring_to_utf8, text + lead), length);
            EXPECT_EQ(errorIndex(ustring_to_utf8, text + trail + lead), length);
            EXPECT_EQ(errorIndex(ustring_to_utf8, text + lead + u"x"), length);
            EXPECT_EQ(errorIndex(ustring_to_utf8, text + lead + trail + trail), length + 2);
            EXPECT_EQ(to_display(text + lead), ustring_to_utf8(text) + "\xEF\xBF\xBD");
        }
    }
}

TEST(Conversion, BringsEveryMixtureOfCharactersBack) {
    EXPECT_EQ(ustring_to_utf8(u"a\u00E4\u20AC\U0001F600"), "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(utf8_to_ustring("\xEF\xBB\xBFx"), u"\uFEFFx");
    ustring mixture;
    for (std::size_t i = 0; i < 100; ++i)
        mixture += ustring(i, u'x') + u"\u00E4\u20AC\U0001F600" + ustring(i, u'\u00E4');
    for (std::size_t start = 0; start < 40; ++start) {
        const ustring text = ustring(start, u'y') + mixture;
        EXPECT_EQ(utf8_to_ustring_strict(ustring_to_utf8(text)), text);
        EXPECT_EQ(utf8_to_ustring(ustring_to_utf8(text)), text);
    }
}

ustring repeated(ustring_view text, std::size_t times) {
    ustring all;
    while (times-- > 0)
        all += text;
    return all;
}

// Short texts are ICU's; longer ones must come out alike, and long runs of marks in little time.
TEST(Composed, OrdersTheMarksOfTextsOfAnyLength) {
    for (const std::size_t times : {3U, 1'000U, 200'000U}) {
        const struct {
            ustring text, decomposed, composed;
        } rows[] = {
            {u"a" + repeated(u"\u0301\u0316", times),
             u"a" + repeated(u"\u0316", times) + repeated(u"\u0301", times),
             u"\u00E1" + repeated(u"\u0316", times) + repeated(u"\u0301", times - 1)},
            // Decomposes into marks of two classes.
            {u"x" + repeated(u"\u0F73", times),
             u"x" + repeated(u"\u0F71", times) + repeated(u"\u0F72", times),
             u"x" + repeated(u"\u0F71", times) + repeated(u"\u0F72", times)},
            {repeated(u"e\u0301\uAC01\U0001D15E\xD800", times),
             repeated(u"e\u0301\u1100\u1161\u11A8\U0001D157\U0001D165\xD800", times),
             repeated(u"\u00E9\uAC01\U0001D157\U0001D165\xD800", times)},
        };
        for (const auto& row : rows) {
            EXPECT_TRUE(to_decomposed(row.text) == row.decomposed) << times;
            EXPECT_TRUE(to_composed(row.text) == row.composed) << times;
        }
    }
}

}  // namespace
}  // namespace fl::i18n
