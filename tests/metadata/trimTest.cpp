#include <appserialization/Functions.hpp>

#include <gtest/gtest.h>
#include <fl/i18n.hpp>

#include <locale>

namespace appserialization {
namespace {

TEST(Trim, RemovesAsciiWhiteSpaceFromTheEndsOnly) {
    const struct {
        const char* why;
        ustring text, expected;
    } rows[] = {
        {"nothing", u"", u""},
        {"nothing to remove", u"Name", u"Name"},
        {"both ends", u"  \tName\r\n", u"Name"},
        {"all six", u"\v\f\r\n\t a \t\n\r\f\v", u"a"},
        {"only blanks", u" \t\n ", u""},
        {"blanks inside", u" a \t b ", u"a \t b"},
        {"no other white space", u"\u00A0\u2003 a\u0085\u3000", u"\u00A0\u2003 a\u0085\u3000"},
        {"a NUL is no space", ustring(u" \0 ", 3), ustring(1, u'\0')},
    };
    for (auto row : rows) {
        SCOPED_TRACE(row.why);
        trim(row.text);
        EXPECT_EQ(row.text, row.expected);
    }
}

TEST(Trim, LeavesTextThatIsNotUtf16AsItIs) {
    const ustring broken{u' ', u'a', 0xDC00, u' '};
    ustring text = broken;
    EXPECT_THROW(trim(text), fl::i18n::ConversionError);
    EXPECT_EQ(text, broken);
}

// Takes "x" for white space.
class OddCharacters : public std::ctype<char> {
public:
    OddCharacters() : std::ctype<char>(table()) {}

private:
    static const mask* table() {
        static mask masks[table_size] = {};
        masks['x'] = space;
        return masks;
    }
};

TEST(Trim, AsksTheGlobalLocaleWhatIsSpace) {
    const std::locale before =
        std::locale::global(std::locale(std::locale::classic(), new OddCharacters));
    ustring text = u"xx a xx";
    trim(text);
    std::locale::global(before);
    EXPECT_EQ(text, u" a ");
}

}  // namespace
}  // namespace appserialization
