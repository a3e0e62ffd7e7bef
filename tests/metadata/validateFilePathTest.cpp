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
        {"ends in more", u"a.kvpkg ", u".kvpkg", false, false},
        {"lower-cases only beyond ASCII", u"a.\u212Avpkg", u".kvpkg", false, true},
        {"has a special mapping in some locales", u"a.\u0130", u".i\u0307", false, true},
        {"the extension is in upper case", u"a.KVPKG", u".KVPKG", true, false},
        {"only the extension is in upper case", u"a.kvpkg", u".KVPKG", false, false},
        {"both empty", u"", u"", false, false},
        {"an empty extension", u"a", u"", true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(hasExtension(row.name, row.extension), row.has);
        EXPECT_EQ(isExtensionWrongCase(row.name, row.extension), row.wrongCase);
    }
}

enum class Outcome { Accepted, WrongExtension, WrongCase, NoSuchFile };

Outcome outcomeFor(const ustring& name) {
    try {
        validateFilePath(name, u".kvpkg");
        return Outcome::Accepted;
    } catch (const AppFileReaderExceptionBase& error) {
        EXPECT_EQ(error.getFileName(), name);
        if (dynamic_cast<const AppFileReaderInvalidFileName*>(&error)) return Outcome::NoSuchFile;
        if (dynamic_cast<const AppFileReaderInvalidFileExtensionCase*>(&error)) {
            return Outcome::WrongCase;
        }
        EXPECT_TRUE(dynamic_cast<const AppFileReaderInvalidFileExtension*>(&error));
        return Outcome::WrongExtension;
    }
}

class ValidateFilePath : public testing::Test {
protected:
    ValidateFilePath() {
        std::filesystem::create_directory("dir");
        for (const char* const file :
             {"dir/App.kvpkg", "App.KVPKG", "App.kvpk", "\xC3\xA4.kvpkg"}) {
            directory_.write(file, "bytes");
        }
        std::filesystem::create_symlink("dir/App.kvpkg", "link.kvpkg");
        std::filesystem::create_symlink("nowhere", "dangling.kvpkg");
    }

    test_support::WorkingDirectory directory_;
};

TEST_F(ValidateFilePath, ChecksExtensionThenCaseThenExistence) {
    const struct {
        ustring name;
        Outcome outcome;
    } rows[] = {
        {u"", Outcome::WrongExtension},
        {u".kvpkg", Outcome::WrongExtension},
        {u"App.kvpk", Outcome::WrongExtension},
        {u"missing.kvpk", Outcome::WrongExtension},
        {u"App.KVPKG", Outcome::WrongCase},
        {u"missing.KvPkg", Outcome::WrongCase},
        {u"missing.kvpkg", Outcome::NoSuchFile},
        {u"dangling.kvpkg", Outcome::NoSuchFile},
        {u"dir/App.kvpkg/", Outcome::WrongExtension},
        {u"dir/App.kvpkg/.kvpkg", Outcome::NoSuchFile},
        {ustring(u"App.KVPKG\0.kvpkg", 16), Outcome::NoSuchFile},
        {ustring(u"dir/App.kvpkg\0", 14), Outcome::WrongExtension},
        {ustring(u"a\0.KVPKG", 8), Outcome::WrongCase},
        {{0xD800, u'.', u'k', u'v', u'p', u'k', u'g'}, Outcome::NoSuchFile},
        {{0xDC00, u'.', u'K', u'v', u'p', u'k', u'g'}, Outcome::WrongCase},
        {u"dir/App.kvpkg", Outcome::Accepted},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.name));
        EXPECT_EQ(outcomeFor(row.name), row.outcome);
    }
}

TEST_F(ValidateFilePath, ReturnsTheAbsolutePathUnresolved) {
    const ustring here = directory_.path().u16string();
    const ustring names[] = {u"dir/../dir/App.kvpkg", u"link.kvpkg", u"\u00E4.kvpkg"};
    for (const ustring& name : names) {
        EXPECT_EQ(validateFilePath(name, u".kvpkg"), here + u"/" + name);
    }
    EXPECT_EQ(validateFilePath(here + u"/link.kvpkg", u".kvpkg"), here + u"/link.kvpkg");
}

}  // namespace
}  // namespace appserialization
