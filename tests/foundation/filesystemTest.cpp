#include <fl/filesystem.hpp>

#include "tests/support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <system_error>

namespace fl::filesystem {
namespace {

class FilesystemTest : public testing::Test {
protected:
    FilesystemTest() {
        directory_.write("file", "bytes");
        std::filesystem::create_directory("dir");
        std::filesystem::create_symlink("../file", "dir/link");
        std::filesystem::create_symlink("nowhere", "dangling");
        std::filesystem::create_symlink("loop", "loop");
        ::mkfifo("fifo", 0600);
    }

    test_support::WorkingDirectory directory_;
};

TEST_F(FilesystemTest, TellsWhatANameStandsFor) {
    const struct {
        ustring name;
        bool exists, isRegular;
    } rows[] = {
        {u"file", true, true},
        {u"dir/link", true, true},
        {u"dir", true, false},
        {u"fifo", true, false},
        {u"dangling", false, false},
        {u"file/", false, false},
        {u"", false, false},
        {ustring(5000, u'a'), false, false},
        {ustring(u"file\0.txt", 9), false, false},
        {{u'f', 0xD800}, false, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.name.substr(0, 40)));
        EXPECT_EQ(exists(path(row.name)), row.exists);
        EXPECT_EQ(isRegularFile(path(row.name)), row.isRegular);
        if (row.exists && !row.isRegular) continue;  // opening the FIFO would wait for a writer
        EXPECT_EQ(ifstream(path(row.name), std::ios::in).is_open(), row.exists);
    }
}

TEST_F(FilesystemTest, MakesAbsoluteWithoutResolvingAndCanonicalWithIt) {
    EXPECT_EQ(absolute(path(u"./dir/../x")).native(), directory_.name("./dir/../x"));
    EXPECT_EQ(absolute(path(u"/a/../b")).native(), u"/a/../b");
    EXPECT_EQ(canonical(path(u"dir/./link")).native(), directory_.name("file"));
    for (const ustring& name : {ustring(u"dangling"), ustring(u"loop"), ustring(u"file\0", 5)}) {
        EXPECT_THROW(canonical(path(name)), std::system_error);
    }
    std::filesystem::current_path("/");
    EXPECT_EQ(absolute(path(u"x")).native(), u"/x");
    std::filesystem::create_directory(directory_.path() / "bad\xFF");
    std::filesystem::current_path(directory_.path() / "bad\xFF");
    EXPECT_THROW(absolute(path(u"x")), std::system_error) << "this has no name";
}

TEST(Path, SplitsAtTheLastSeparator) {
    const struct {
        const char16_t *name, *parent, *filename;
    } rows[] = {
        {u"file", u".", u"file"},    {u"dir/file", u"dir", u"file"}, {u"//file", u"/", u"file"},
        {u"a//file", u"a", u"file"}, {u"a/b/", u"a/b", u""},         {u"", u".", u""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.name));
        EXPECT_EQ(path(row.name).parent().native(), row.parent);
        EXPECT_EQ(path(row.name).filename(), row.filename);
    }
    EXPECT_EQ(detail::make_native_access_form_with_cleanup_i18n(u"\u00E4/a.k//"), "\xC3\xA4/a.k");
    EXPECT_EQ(detail::make_native_access_form_with_cleanup_i18n(u"//"), "/");
}

}  // namespace
}  // namespace fl::filesystem
