#include <fl/filesystem.hpp>

#include <fl/FileDescriptor.hpp>
#include <fl/SystemCalls.hpp>

#include "tests/support/TemporaryDirectory.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cwchar>
#include <filesystem>
#include <iterator>
#include <locale>
#include <string>
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
        if (row.exists && !row.isRegular) continue;  // opening the FIFO would wait for a writer
        EXPECT_EQ(ifstream(path(row.name), std::ios::in).is_open(), row.exists);
    }
}

// Opening a FIFO or a device is noticed at its other end.
TEST_F(FilesystemTest, OpensOnlyRegularFiles) {
    const SystemCalls saved = systemCalls();
    systemCalls().openat = [](int, const char* name, int, mode_t) {
        ADD_FAILURE() << name << " was opened";
        return (errno = EIO, -1);
    };
    EXPECT_THROW(FileDescriptor::openForReading(path(u"fifo")), std::system_error);
    EXPECT_THROW(FileDescriptor::openForReading(path(u"dir")), std::system_error);
    systemCalls() = saved;
}

// Whatever becomes of the file's own name, and with no more descriptors than there are by then.
TEST_F(FilesystemTest, ReadsAnOpenFileByItsPrivateName) {
    const FileDescriptor file = FileDescriptor::openForReading(path(u"dir/link"));
    const path name = file.privateName(u"other.kvpkg");
    EXPECT_EQ(name.filename(), u"other.kvpkg");
    std::filesystem::remove("file");
    for (int times = 0; times < 2; ++times) {
        EXPECT_TRUE(exists(name) && isSameFile(name, name));
        EXPECT_EQ(FileDescriptor::openForReading(name).stamp(), file.stamp());
        ifstream stream(name, std::ios::in | std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), "bytes");
    }
    EXPECT_FALSE(fstream(name, std::ios::out).is_open());
    EXPECT_FALSE(fstream(name, std::ios::in | std::ios::out).is_open());
    EXPECT_THROW(canonical(name), std::system_error);
    std::error_code error;
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(name.native()), error)) << error;
}

// As a program may have it for the text files of another system.
class Inverting : public std::codecvt<char, char, std::mbstate_t> {
    bool do_always_noconv() const noexcept override { return false; }
    int do_encoding() const noexcept override { return 1; }
    result do_in(std::mbstate_t&, const char* from, const char* fromEnd, const char*& fromNext,
                 char* to, char* toEnd, char*& toNext) const override {
        while (from < fromEnd && to < toEnd)
            *to++ = static_cast<char>(~*from++);
        fromNext = from;
        toNext = to;
        return from == fromEnd ? ok : partial;
    }
    result do_out(std::mbstate_t& state, const char* from, const char* fromEnd,
                  const char*& fromNext, char* to, char* toEnd, char*& toNext) const override {
        return do_in(state, from, fromEnd, fromNext, to, toEnd, toNext);
    }
};

TEST_F(FilesystemTest, KeepsBytesWhateverTheGlobalLocaleConverts) {
    const std::locale before = std::locale::global(std::locale(std::locale(), new Inverting));
    const FileDescriptor file = FileDescriptor::openForReading(path(u"file"));
    std::string read[2];
    for (const path& name : {path(u"file"), file.privateName(u"file")}) {
        ifstream stream(name, std::ios::in | std::ios::binary);
        read[name == path(u"file")] = std::string(std::istreambuf_iterator<char>(stream), {});
    }
    fstream(path(u"written"), std::ios::out | std::ios::binary) << "bytes";
    std::locale::global(before);
    EXPECT_EQ(read[0], "bytes");
    EXPECT_EQ(read[1], "bytes");
    EXPECT_EQ(test_support::readFile("written"), "bytes");
}

TEST_F(FilesystemTest, CopiesAllThatWasAskedForOrFails) {
    const FileDescriptor file = FileDescriptor::openForReading(path(u"file"));
    FileDescriptor copy(::open("copy", O_RDWR | O_CREAT, 0600));
    copy.copyFrom(file, 1, 4, 0);
    EXPECT_EQ(test_support::readFile("copy"), "ytes");
    EXPECT_THROW(copy.copyFrom(file, 0, 6, 0), std::system_error);
}

TEST_F(FilesystemTest, TakesNothingElseForAPrivateName) {
    const FileDescriptor file = FileDescriptor::openForReading(path(u"file"));
    const FileDescriptor folder(::open("dir", O_RDONLY));
    const FileDescriptor fifo(::open("fifo", O_RDONLY | O_NONBLOCK));
    const std::string number = std::to_string(file.get());
    const std::string names[] = {
        "/proc/self/fd/" + number + "/",
        "/proc/self/fd/" + number + "/a/b",
        "/proc/self/fd/x/a",
        "/proc/self/fd/-" + number + "/a",
        "/proc/self/fd/99999999999/a",
        "/proc/self/fd/9999/a",
        "/proc/self/fd//a",
        "/proc/self/fdx/" + number + "/a",
        "proc/self/fd/" + number + "/a",
        "/proc/self/fd/" + std::to_string(folder.get()) + "/a",
        "/proc/self/fd/" + std::to_string(fifo.get()) + "/a",
    };
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(exists(path::fromBytes(name)));
        EXPECT_FALSE(ifstream(path::fromBytes(name), std::ios::in).is_open());
        EXPECT_THROW(FileDescriptor::openForReading(path::fromBytes(name)), std::system_error);
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
