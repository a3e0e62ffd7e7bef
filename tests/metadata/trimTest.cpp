#include <appserialization/Functions.hpp>

#include <gtest/gtest.h>
#include <fl/i18n.hpp>

namespace appserialization {
namespace {

TEST(Trim, RemovesAsciiWhiteSpaceFromTheEndsOnly) {
    const std::pair<ustring, ustring> rows[] = {
        {u"", u""},
        {u" \t\n ", u""},
        {u"\v\f\r\n\t a \t b \t\n\r\f\v", u"a \t b"},
        {u"\u00A0\u2003 a\u0085\u3000", u"\u00A0\u2003 a\u0085\u3000"},
        {ustring(u" \0 ", 3), ustring(1, u'\0')},
    };
    for (auto [text, expected] : rows) {
        trim(text);
        EXPECT_EQ(text, expected);
    }
    const ustring broken{u' ', u'a', 0xDC00, u' '};
    ustring text = broken;
    EXPECT_THROW(trim(text), fl::i18n::ConversionError);
    EXPECT_EQ(text, broken) << "as it was";
}

}  // namespace
}  // namespace appserialization
