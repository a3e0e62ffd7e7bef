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
        ::mkfifo("fifo", 0600);
    }

    test_support::WorkingDirectory directory_;
};

TEST_F(FilesystemTest, TellsWhatANameStandsFor) {
    const struct {
        ustring name;
        bool exists, isRegular;
    } rows[] = {
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
    EXPECT_THROW(canonical(path(u"dangling")), std::system_error);
    EXPECT_THROW(canonical(path(ustring(u"file\0", 5))), std::system_error);
    std::filesystem::current_path("/");
    EXPECT_EQ(absolute(path(u"x")).native(), u"/x");
    std::filesystem::create_directory(directory_.path() / "bad\xFF");
    std::filesystem::current_path(directory_.path() / "bad\xFF");
    EXPECT_THROW(absolute(path(u"x")), std::system_error) << "this has no name";
}

}  // namespace
}  // namespace fl::filesystem
