#include <appserialization/Exceptions.hpp>
#include <appserialization/Functions.hpp>

#include <gtest/gtest.h>
#include <fl/i18n.hpp>

#include <filesystem>

#include "tests/support/TemporaryDirectory.hpp"

namespace appserialization {
namespace {

TEST(HasExtension, ComparesTheLastCodeUnitsExactly) {
    const struct {
        const char16_t *name, *extension;
        bool has, wrongCase;
    } rows[] = {
        {u"a.kvpkg", u".kvpkg", true, false},
        {u".kvpkg", u".kvpkg", false, false},
        {u"pkg", u".kvpkg", false, false},
        {u"a.KvPkg", u".kvpkg", false, true},
        {u".KVPKG", u".kvpkg", false, false},
        {u"a.\u212Avpkg", u".kvpkg", false, true},  // a kelvin sign
        {u"a.KVPKG", u".KVPKG", true, false},
        {u"a", u"", true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(ustring(row.name)));
        EXPECT_EQ(hasExtension(row.name, row.extension), row.has);
        EXPECT_EQ(isExtensionWrongCase(row.name, row.extension), row.wrongCase);
    }
}

template <class Error>
void expectRefused(const std::vector<ustring>& names) {
    for (const ustring& name : names) {
        SCOPED_TRACE(testing::PrintToString(name));
        try {
            validateFilePath(name, u".kvpkg");
            ADD_FAILURE() << "was accepted";
        } catch (const Error& error) {
            EXPECT_EQ(error.getFileName(), name);
        }
    }
}

TEST(ValidateFilePath, ChecksExtensionThenCaseThenExistence) {
    const test_support::WorkingDirectory directory;
    std::filesystem::create_directory("dir");
    for (const char* const file : {"dir/App.kvpkg", "App.KVPKG", "App.kvpk", "\xC3\xA4.kvpkg"})
        directory.write(file, "bytes");
    std::filesystem::create_symlink("dir/App.kvpkg", "link.kvpkg");
    std::filesystem::create_symlink("nowhere", "dangling.kvpkg");

    expectRefused<AppFileReaderInvalidFileExtension>(
        {u"", u".kvpkg", u"App.kvpk", u"dir/App.kvpkg/", ustring(u"dir/App.kvpkg\0", 14)});
    expectRefused<AppFileReaderInvalidFileExtensionCase>(
        {u"App.KVPKG", u"missing.KvPkg", {0xDC00, u'.', u'K', u'v', u'p', u'k', u'g'}});
    expectRefused<AppFileReaderInvalidFileName>({u"missing.kvpkg",
                                                 u"dangling.kvpkg",
                                                 u"dir/App.kvpkg/.kvpkg",
                                                 ustring(u"App.KVPKG\0.kvpkg", 16),
                                                 {0xD800, u'.', u'k', u'v', u'p', u'k', u'g'}});
    // What is accepted becomes absolute, and no link is resolved.
    const ustring here = directory.path().u16string() + u"/";
    for (const char16_t* name : {u"dir/../dir/App.kvpkg", u"link.kvpkg", u"\u00E4.kvpkg"})
        EXPECT_EQ(validateFilePath(name, u".kvpkg"), here + name);
    EXPECT_EQ(validateFilePath(here + u"link.kvpkg", u".kvpkg"), here + u"link.kvpkg");
}

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
