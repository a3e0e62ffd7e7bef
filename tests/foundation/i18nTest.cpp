#include <fl/i18n.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace fl::i18n {
namespace {

constexpr char16_t kFffd = 0xFFFD;

struct IllFormedUtf8 {
    const char* why;
    std::string bytes;
    std::size_t index;
    ustring replaced;
};

const IllFormedUtf8 kIllFormedUtf8[] = {
    {"a stray trail byte", "a\x80z", 1, {u'a', kFffd, u'z'}},
    {"bytes that no text has", "\xFE\xFF", 0, {kFffd, kFffd}},
    {"overlong in two bytes", "\xC0\xAF", 0, {kFffd, kFffd}},
    {"overlong in three bytes", "\xE0\x80\xAF", 0, {kFffd, kFffd, kFffd}},
    {"overlong in four bytes", "\xF0\x80\x80\xAF", 0, {kFffd, kFffd, kFffd, kFffd}},
    {"an encoded surrogate", "\xED\xA0\x80", 0, {kFffd, kFffd, kFffd}},
    {"above U+10FFFF", "\xF4\x90\x80\x80", 0, {kFffd, kFffd, kFffd, kFffd}},
    {"a lead byte of five", "\xF8\x88", 0, {kFffd, kFffd}},
    {"two of three bytes, then a letter", "ab\xE1\x80z", 2, {u'a', u'b', kFffd, u'z'}},
    {"three of four bytes, then a letter", "\xF1\x80\x80z", 0, {kFffd, u'z'}},
    {"cut after the lead byte", "x\xC3", 1, {u'x', kFffd}},
    {"cut after two of three", "x\xE2\x82", 1, {u'x', kFffd}},
    {"cut after three of four", "x\xF0\x9F\x98", 1, {u'x', kFffd}},
    {"behind a genuine replacement character",
     "\xEF\xBF\xBD\xC3\xA4\xFF",
     5,
     {kFffd, u'\u00E4', kFffd}},
    {"the published mixture",
     "a\xF1\x80\x80\xE1\x80\xC2"
     "b\x80"
     "c\x80\xBF"
     "d",
     1,
     {u'a', kFffd, kFffd, kFffd, u'b', kFffd, u'c', kFffd, kFffd, u'd'}},
};

std::size_t strictErrorIndex(const std::string& bytes) {
    try {
        utf8_to_ustring_strict(bytes);
    } catch (const ConversionError& error) {
        return error.index();
    }
    return std::string::npos;
}

std::size_t errorIndex(const ustring& text) {
    try {
        ustring_to_utf8(text);
    } catch (const ConversionError& error) {
        return error.index();
    }
    return ustring::npos;
}

// Numbers of code units in front of what is tested, around the ends of inner blocks and pieces.
const std::size_t kFronts[] = {0,    1,    2,    14,   15,   16,   17,   2030, 2031, 2032, 2043,
                               2044, 2045, 2046, 2047, 2048, 2049, 4093, 4094, 4095, 4096};

// Text of `length` bytes or units, ASCII or with something else in every block.
std::string utf8Front(bool ascii, std::size_t length) {
    std::string front = "x";
    while (!ascii && front.size() + 1 < length)
        front += "\xC3\xA4";
    front.resize(std::max(front.size(), length), 'x');
    return front.substr(front.size() - length);
}

ustring utf16Front(bool ascii, std::size_t length) {
    return ustring(length, ascii ? u'x' : u'\u00E4');
}

TEST(Utf8ToUstring, ReplacesEachMaximalSubpartAndStrictlyNamesTheFirst) {
    for (const bool ascii : {true, false}) {
        for (const std::size_t length : kFronts) {
            const std::string front = utf8Front(ascii, length);
            const ustring converted = utf8_to_ustring_strict(front);
            for (const auto& row : kIllFormedUtf8) {
                SCOPED_TRACE(row.why + (" behind " + std::to_string(length)));
                const std::string bytes = front + row.bytes;
                EXPECT_EQ(utf8_to_ustring(bytes), converted + row.replaced);
                EXPECT_EQ(utf8_to_ustring(bytes + std::string(40, 'y')),
                          converted + row.replaced + ustring(40, u'y'));
                EXPECT_EQ(strictErrorIndex(bytes), length + row.index);
            }
        }
    }
}

TEST(UstringToUtf8, RefusesAnUnpairedSurrogateAtEveryPlace) {
    const ustring lead(1, char16_t(0xD83D));
    const ustring trail(1, char16_t(0xDE00));
    for (const bool ascii : {true, false}) {
        for (const std::size_t length : kFronts) {
            SCOPED_TRACE(length);
            const ustring text = utf16Front(ascii, length);
            EXPECT_EQ(errorIndex(text + lead), length);
            EXPECT_EQ(errorIndex(text + trail + u"z"), length);
            EXPECT_EQ(errorIndex(text + trail + lead), length);
            EXPECT_EQ(errorIndex(text + lead + lead + trail), length);
            EXPECT_EQ(errorIndex(text + lead + trail + trail + ustring(20, u'y')), length + 2);
            EXPECT_EQ(to_display(text + lead + u"z"), ustring_to_utf8(text) + "\xEF\xBF\xBDz");
        }
    }
}

TEST(Conversion, BringsEveryMixtureOfCharactersBack) {
    const ustring alphabet[] = {
        u"a",          u"\u00E4",         u"\u20AC",
        u"\U0001F600", ustring(1, u'\0'), u"plain text that fills more than one block"};
    std::mt19937 random(20);
    for (int round = 0; round < 300; ++round) {
        const std::size_t choices = std::size(alphabet) - static_cast<std::size_t>(round % 2);
        ustring text;
        const std::size_t length = random() % 5000;
        while (text.size() < length)
            text += alphabet[random() % choices];
        const std::string bytes = ustring_to_utf8(text);
        ASSERT_EQ(utf8_to_ustring_strict(bytes), text);
        ASSERT_EQ(utf8_to_ustring(bytes), text);
    }
    EXPECT_EQ(ustring_to_utf8(u"a\u00E4\u20AC\U0001F600"), "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(utf8_to_ustring("\xEF\xBB\xBFx"), u"\uFEFFx");
}

TEST(ToLower, FollowsUnicodeAndNoLocale) {
    const struct {
        const char* why;
        ustring text, expected;
    } rows[] = {
        {"nothing", u"", u""},
        {"ASCII, with an I that no locale may dot", u"APP.KVPKG I", u"app.kvpkg i"},
        {"beyond ASCII", u"\u00C4\u0416\U00010400", u"\u00E4\u0436\U00010428"},
        {"a text that grows", ustring(9, u'\u0130'),
         [] {
             ustring text;
             for (int i = 0; i < 9; ++i)
                 text += u"i\u0307";
             return text;
         }()},
        {"a final sigma", u"\u039F\u03A3", u"\u03BF\u03C2"},
        {"unpaired surrogates", {0xD800, u'A', 0xDC00}, {0xD800, u'a', 0xDC00}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(to_lower(row.text), row.expected);
    }
}

}  // namespace
}  // namespace fl::i18n
