#include <appserialization/Exceptions.hpp>
#include <appserialization/Functions.hpp>

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/TemporaryDirectory.hpp"

namespace appserialization {
namespace {

TEST(HasExtension, ComparesTheLastCodeUnitsExactly) {
    const struct {
        const char* why;
        const char16_t *name, *extension;
        bool has, wrongCase;
    } rows[] = {
        {"ends in it", u"a.kvpkg", u".kvpkg", true, false},
        {"is nothing but the extension", u".kvpkg", u".kvpkg", false, false},
        {"is shorter", u"pkg", u".kvpkg", false, false},
        {"differs in case", u"a.KvPkg", u".kvpkg", false, true},
        {"is nothing but the extension in another case", u".KVPKG", u".kvpkg", false, false},
        {"lower-cases only beyond ASCII", u"a.\u212Avpkg", u".kvpkg", false, true},
        {"has a special mapping in some locales", u"a.\u0130", u".i\u0307", false, true},
        {"the extension is in upper case", u"a.KVPKG", u".KVPKG", true, false},
        {"an empty extension", u"a", u"", true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
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

}  // namespace
}  // namespace appserialization
