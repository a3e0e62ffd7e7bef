#include <fl/ReplacementFile.hpp>

#include <fl/SystemCalls.hpp>

#include "tests/support/TemporaryDirectory.hpp"
#include "tests/support/WatchedSystem.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <iostream>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace fl::filesystem {
namespace {

namespace stdfs = std::filesystem;
using test_support::readFile;
using test_support::WatchedSystem;

class ReplacementFileTest : public testing::Test {
protected:
    path name(const char* file) const { return path(directory_.name(file)); }
    stdfs::path file(const char* file) const { return directory_.path() / file; }
    void write(const char* file, const char* bytes) const { directory_.write(file, bytes); }

    static void save(const path& target) {
        const SaveTarget found(target);
        ReplacementFile replacement(found);
        replacement.file().writeAt(std::as_bytes(std::span("new", 3)), 0);
        replacement.commit();
    }
    std::string complaint(const path& target) const {
        try {
            save(target);
        } catch (const std::system_error& error) {
            const std::string text = error.what();
            const std::string top = directory_.path().string() + "/";
            return text.starts_with(top) ? text.substr(top.size()) : "(no file) " + text;
        }
        return "";
    }
    std::set<std::string> files() const {
        std::set<std::string> names;
        for (const auto& entry : stdfs::directory_iterator(directory_.path())) {
            names.insert(entry.path().filename());
        }
        return names;
    }

    test_support::TemporaryDirectory directory_;
};

TEST_F(ReplacementFileTest, GivesANewFileTheModeOfTheUmask) {
    const mode_t before = ::umask(027);
    save(name("a"));
    ::umask(before);
    EXPECT_EQ(stdfs::status(file("a")).permissions(), stdfs::perms(0640));
}

TEST_F(ReplacementFileTest, KeepsWhatItMayAndRefusesToLoseTheRest) {
    const struct {
        const char* why;
        const char* attribute;
        decltype(SystemCalls::fchown) changeOwner;
        decltype(SystemCalls::fsetxattr) setAttribute;
        const char* complaint;
        mode_t mode;
    } rows[] = {
        {"others may not give files away, nor the rights that go with the owner", "user.note",
         [](int, uid_t, gid_t) { return (errno = EPERM, -1); }, ::fsetxattr, "", 0755},
        {"there may be no room", "user.note", ::fchown,
         [](int, const char*, const void*, std::size_t, int) { return (errno = ENOSPC, -1); },
         "a: cannot keep the extended attribute \"user.note\": No space left on device", 06755},
        {"security is the system's", "security.note", ::fchown,
         [](int, const char*, const void*, std::size_t, int) { return (errno = EPERM, -1); }, "",
         06755},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        stdfs::remove(file("a"));
        write("a", "old");
        ASSERT_EQ(::chmod(file("a").c_str(), 06755), 0);
        const bool isSet = ::setxattr(file("a").c_str(), row.attribute, "kept", 4, 0) == 0;
        ASSERT_TRUE(isSet || ::geteuid() != 0);
        const WatchedSystem system;
        systemCalls().fchown = row.changeOwner;
        systemCalls().fsetxattr = row.setAttribute;
        EXPECT_EQ(complaint(name("a")), row.complaint);
        EXPECT_EQ(readFile(file("a")), *row.complaint == '\0' ? "new" : "old");
        EXPECT_EQ(static_cast<mode_t>(stdfs::status(file("a")).permissions()), row.mode);
    }
}

// The system would refuse to open new content that has the digest of the old.
TEST_F(ReplacementFileTest, CopiesNoDigestOfTheOldContent) {
    static std::set<std::string> copied;
    copied.clear();
    write("a", "old");
    const WatchedSystem system;
    systemCalls().flistxattr = [](int, char* names, std::size_t size) {
        constexpr std::string_view kNames("security.evm\0security.ima\0security.note\0", 40);
        if (size >= kNames.size()) kNames.copy(names, size);
        return static_cast<ssize_t>(kNames.size());
    };
    systemCalls().fgetxattr = [](int, const char*, void*, std::size_t) { return ssize_t{1}; };
    systemCalls().fsetxattr = [](int, const char* name, const void*, std::size_t, int) {
        copied.insert(name);
        return 0;
    };
    save(name("a"));
    EXPECT_EQ(copied, std::set<std::string>{"security.note"});
}

// The rights of a group that cannot be kept are not for the members of another one.
TEST_F(ReplacementFileTest, GivesAnotherGroupOnlyWhatAllOthersHave) {
    static int error;
    const gid_t other = ::getegid() + 1;
    constexpr std::string_view kList(  // user::rw- user:1234:rw- group::rw- mask::rw- other::r--
        "\2\0\0\0\1\0\6\0\xFF\xFF\xFF\xFF\2\0\6\0\xD2\4\0\0\4\0\6\0\xFF\xFF\xFF\xFF"
        "\x10\0\6\0\xFF\xFF\xFF\xFF\x20\0\4\0\xFF\xFF\xFF\xFF",
        44);
    constexpr std::size_t kGroupEntry = 22, kMaskEntry = 30, kOtherEntry = 38;
    const struct {
        const char* why;
        bool hasAnotherGroup;
        int error;
        mode_t old;
        bool hasList;
        mode_t mode;
        char groupRights;
    } rows[] = {
        {"a group's own", true, EPERM, 0660, false, 0600, 0},
        {"what all may", true, EPERM, 0664, false, 0644, 0},
        {"what all but the group may", true, EPERM, 0604, false, 0600, 0},
        {"a group that the namespace does not know", false, EINVAL, 0660, false, 0600, 0},
        {"the same group", false, EPERM, 0660, false, 0660, 0},
        {"with an access list", true, EPERM, 0664, true, 0664, 4},
        {"with an access list, the same group", false, EPERM, 0664, true, 0664, 6},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        stdfs::remove(file("a"));
        write("a", "old");
        if (row.hasAnotherGroup && ::chown(file("a").c_str(), ::geteuid(), other) != 0) continue;
        ASSERT_EQ(::chmod(file("a").c_str(), row.old), 0);
        if (row.hasList && ::setxattr(file("a").c_str(), "system.posix_acl_access", kList.data(),
                                      kList.size(), 0) != 0) {
            continue;  // this file system has no access lists
        }
        error = row.error;
        const WatchedSystem system;
        systemCalls().fchown = [](int, uid_t, gid_t) { return (errno = error, -1); };
        EXPECT_EQ(complaint(name("a")), "");
        EXPECT_EQ(static_cast<mode_t>(stdfs::status(file("a")).permissions()), row.mode);
        if (!row.hasList) continue;
        std::string list(kList.size(), '\0');
        ASSERT_EQ(
            ::getxattr(file("a").c_str(), "system.posix_acl_access", list.data(), list.size()),
            static_cast<ssize_t>(kList.size()));
        EXPECT_EQ(list[kGroupEntry], row.groupRights);
        EXPECT_EQ(list[kMaskEntry], 6);
        EXPECT_EQ(list[kOtherEntry], 4);
    }
}

// A directory may give an access list to whatever is created in it.
TEST_F(ReplacementFileTest, GivesTheDirectorysAccessListToNewFilesOnly) {
    constexpr std::string_view kList(
        "\2\0\0\0\1\0\7\0\xFF\xFF\xFF\xFF\2\0\4\0\xD2\4\0\0\4\0\5\0\xFF\xFF\xFF\xFF"
        "\x10\0\5\0\xFF\xFF\xFF\xFF\x20\0\0\0\xFF\xFF\xFF\xFF",
        44);
    const auto accessList = [&](const char* name) {
        char found[64];
        const ssize_t size =
            ::getxattr(file(name).c_str(), "system.posix_acl_access", found, sizeof found);
        return std::string(found, size < 0 ? 0 : static_cast<std::size_t>(size));
    };
    write("old", "old");
    ASSERT_EQ(::setxattr(directory_.path().c_str(), "system.posix_acl_default", kList.data(),
                         kList.size(), 0),
              0);
    write("by others", "");
    save(name("old"));
    save(name("new"));
    EXPECT_EQ(accessList("old"), "");
    EXPECT_NE(accessList("new"), "");
    EXPECT_EQ(accessList("new"), accessList("by others"));
}

TEST_F(ReplacementFileTest, ReplacesWhatALinkPointsTo) {
    stdfs::create_directory(file("d"));
    write("d/target", "old");
    stdfs::create_symlink("d/second", file("first"));
    stdfs::create_symlink("target", file("d/second"));
    stdfs::create_symlink("d/created", file("dangling"));
    stdfs::create_symlink("loop", file("loop"));
    EXPECT_EQ(SaveTarget(name("first")).resolved(), path(directory_.name("d/target")));
    save(name("first"));
    save(name("dangling"));
    EXPECT_TRUE(stdfs::is_symlink(file("first")));
    EXPECT_TRUE(stdfs::is_symlink(file("dangling")));
    EXPECT_EQ(readFile(file("d/target")), "new");
    EXPECT_EQ(readFile(file("d/created")), "new");
    EXPECT_THAT(complaint(name("loop")), testing::StartsWith("loop: cannot follow its symbolic"));
}

TEST_F(ReplacementFileTest, FollowsNoLinkThatAnotherUserPutIntoADirectoryForAll) {
    static uid_t ownerOfLink, ownerOfDirectory;
    const uid_t self = ::geteuid();
    const struct {
        const char* why;
        mode_t mode;
        uid_t ownerOfLink, ownerOfDirectory;
        bool isFollowed;
    } rows[] = {
        {"another user's, in a directory for all", 01777, self + 1, self, false},
        {"another user's, in a third user's directory for all", 01777, self + 1, self + 2, false},
        {"one's own", 01777, self, self + 2, true},
        {"that of the directory's owner", 01777, self + 2, self + 2, true},
        {"another user's, in a directory for all that protects nobody", 0777, self + 1, self, true},
        {"another user's, in a directory for some", 01775, self + 1, self, true},
    };
    stdfs::create_directory(file("d"));
    for (const char* target : {"there", "missing"}) {
        stdfs::remove(file("d/link"));
        stdfs::create_symlink(file(target), file("d/link"));
        for (const auto& row : rows) {
            SCOPED_TRACE(row.why);
            stdfs::remove(file("missing"));
            write("there", "old");
            stdfs::permissions(file("d"), stdfs::perms(row.mode));
            ownerOfLink = row.ownerOfLink;
            ownerOfDirectory = row.ownerOfDirectory;
            const WatchedSystem system;
            systemCalls().fstat = [](int opened, struct stat* result) {
                const int status = ::fstat(opened, result);
                if (S_ISLNK(result->st_mode)) result->st_uid = ownerOfLink;
                if (S_ISDIR(result->st_mode)) result->st_uid = ownerOfDirectory;
                return status;
            };
            EXPECT_EQ(complaint(name("d/link")),
                      row.isFollowed
                          ? ""
                          : "d/link: is another user's symbolic link, in a directory where "
                            "everybody may put one (save under another name): Permission denied");
            const bool isNew = std::string_view(target) == "missing";
            EXPECT_EQ(stdfs::exists(file("missing")), row.isFollowed && isNew);
            EXPECT_EQ(readFile(file("there")), row.isFollowed && !isNew ? "new" : "old");
        }
    }
}

TEST_F(ReplacementFileTest, RefusesWhatMayNotBeReplaced) {
    stdfs::create_directory(file("d"));
    ASSERT_EQ(::mkfifo(file("fifo").c_str(), 0600), 0);
    EXPECT_EQ(complaint(name("d/")),
              "d/: is not a regular file (save under another name): Is a directory");
    EXPECT_NE(complaint(name("fifo")), "");
    EXPECT_NE(complaint(name("none/a")), "");
    EXPECT_NE(complaint(path(u"")), "");
    EXPECT_THROW(SaveTarget(path(ustring(u"a\0b", 3))), std::system_error);
}

TEST_F(ReplacementFileTest, LeavesAFileThatWasRemovedMeanwhileAlone) {
    write("a", "old");
    const SaveTarget found(name("a"));
    ReplacementFile replacement(found);
    stdfs::remove(file("a"));
    EXPECT_THAT([&] { replacement.commit(); },
                testing::ThrowsMessage<std::system_error>(testing::HasSubstr(
                    "/a: someone else created, changed or removed the file in the meantime")));
}

// The system's own links to open files say what name the file had.
TEST_F(ReplacementFileTest, SavesThroughALinkToAnOpenFileUnderItsNameOnly) {
    write("a", "old");
    write("b", "old");
    stdfs::create_directory(file("d"));
    const auto opened = [&](const char* each) {
        return FileDescriptor(::open(file(each).c_str(), O_RDWR | O_CLOEXEC));
    };
    const FileDescriptor named = opened("a"), removed = opened("b"),
                         nameless(::open(file("d").c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    const auto linkTo = [](const FileDescriptor& descriptor) {
        const std::string link = "/proc/self/fd/" + std::to_string(descriptor.get());
        return path(ustring(link.begin(), link.end()));
    };
    save(linkTo(named));
    EXPECT_EQ(readFile(file("a")), "new");

    stdfs::remove(file("b"));
    stdfs::create_symlink(linkTo(removed).native(), file("link"));
    for (const path& target : {linkTo(removed), linkTo(nameless), name("link")}) {
        EXPECT_THAT([&] { save(target); },
                    testing::ThrowsMessage<std::system_error>(
                        testing::HasSubstr("is a link to an open file, which has no name here")));
    }
    EXPECT_EQ(files(), (std::set<std::string>{"a", "d", "link"}));
    EXPECT_TRUE(stdfs::is_empty(file("d")));
}

// As where times are coarse and a new file gets the number of one that was just removed.
TEST_F(ReplacementFileTest, KnowsItsFileFromAnotherOfTheSameTimeAndSize) {
    write("a", "old");
    const WatchedSystem system;
    systemCalls().fstat = [](int descriptor, struct stat* result) {
        const int status = ::fstat(descriptor, result);
        result->st_mtim = {};
        return status;
    };
    systemCalls().fstatat = [](int directory, const char* file, struct stat* result, int flags) {
        const int status = ::fstatat(directory, file, result, flags);
        result->st_mtim = {};
        return status;
    };
    for (int round = 0; round < 20; ++round) {
        const SaveTarget found(name("a"));
        save(name("a"));
        save(name("a"));
        EXPECT_THROW(ReplacementFile(found).commit(), std::system_error);
    }
}

// What the name leads to by then is another's, and must stay as it is.
TEST_F(ReplacementFileTest, FailsWhereTheNameLeadsElsewhereByThen) {
    const struct {
        const char* why;
        const char* name;
        const char* from;  // renamed while the save goes on
        const char* to;
    } rows[] = {
        {"a link", "link", "other link", "link"},
        {"a folder on the way is a link", "linked/a", "other linked", "linked"},
        {"a folder on the way", "d/sub/a", "d/sub", "d/gone"},
        {"a folder on the way, with another in its place", "e/a", "e", "f"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        for (const char* folder : {"d/sub", "e", "other"}) {
            stdfs::create_directories(file(folder));
            write((std::string(folder) + "/a").c_str(), "old");
        }
        stdfs::create_symlink("d/sub/a", file("link"));
        stdfs::create_symlink("other/a", file("other link"));
        stdfs::create_symlink("d/sub", file("linked"));
        stdfs::create_symlink("other", file("other linked"));
        const SaveTarget found(name(row.name));
        ReplacementFile replacement(found);
        stdfs::rename(file(row.from), file(row.to));
        if (row.to == std::string_view("f")) {
            stdfs::create_directory(file("e"));
            write("e/a", "old");
        }
        EXPECT_THAT([&] { replacement.commit(); },
                    testing::ThrowsMessage<std::system_error>(
                        testing::HasSubstr(": someone else created, changed or removed the file")));
        for (const auto& entry : stdfs::recursive_directory_iterator(directory_.path())) {
            if (!entry.is_regular_file()) continue;
            EXPECT_EQ(readFile(entry.path()), "old") << entry.path();
        }
        for (const auto& entry : stdfs::directory_iterator(directory_.path()))
            stdfs::remove_all(entry.path());
    }
}

TEST_F(ReplacementFileTest, MeansTheFileOfTheWorkingDirectoryThatItWasMadeIn) {
    const test_support::WorkingDirectory first;
    const SaveTarget found{path(u"a")};
    ReplacementFile replacement(found);
    replacement.file().writeAt(std::as_bytes(std::span("new", 3)), 0);
    const test_support::WorkingDirectory second;
    replacement.commit();
    EXPECT_EQ(readFile(first.path() / "a"), "new");
    EXPECT_FALSE(stdfs::exists("a"));
}

TEST_F(ReplacementFileTest, WaitsAWhileForOthersToFinishTheirSave) {
    static int tries, held, error;
    const struct {
        const char* why;
        int held;  // so many tries find it locked
        int error;
        const char* complaint;
        int tries;
    } rows[] = {
        {"nobody saves", 0, 0, "", 1},
        {"somebody does for a moment", 30, EWOULDBLOCK, "", 31},
        {"somebody keeps it locked", 5000, EWOULDBLOCK,
         "a: someone else has kept it locked for 10 seconds; it is left as it is (save again "
         "when that is done): Device or resource busy",
         1001},
        {"a signal comes", 1, EINTR, "", 2},
        {"there are no locks here", 1, EOPNOTSUPP, "", 1},
        {"the disk fails", 1, EIO, "a: cannot lock it against other savers: Input/output error", 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        write("a", "old");
        const WatchedSystem system;
        tries = 0;
        held = row.held;
        error = row.error;
        systemCalls().flock = [](int, int operation) {
            if (operation == LOCK_UN) return 0;
            return tries++ < held ? (errno = error, -1) : 0;
        };
        EXPECT_EQ(complaint(name("a")), row.complaint);
        EXPECT_EQ(tries, row.tries);
        EXPECT_EQ(readFile(file("a")), *row.complaint == '\0' ? "new" : "old");
        EXPECT_EQ(files(), std::set<std::string>{"a"});
    }
}

// Who has opened the old file meanwhile waits for no descriptor of the saver's to be closed, of
// which a child that was forked has a copy.
TEST_F(ReplacementFileTest, LetsGoOfTheLock) {
    write("a", "old");
    const SaveTarget found(name("a"));
    ReplacementFile replacement(found);
    const FileDescriptor old = FileDescriptor::openForReading(name("a"));
    replacement.commit();
    EXPECT_EQ(::flock(old.get(), LOCK_EX | LOCK_NB), 0);
}

TEST_F(ReplacementFileTest, SeesWhatChangedWhileItWaitedForTheLock) {
    static std::function<void()> change;
    const std::pair<const char*, std::function<void()>> rows[] = {
        {"the file is replaced",
         [&] {
             write("other", "other");
             stdfs::rename(file("other"), file("a"));
         }},
        {"the link leads elsewhere", [&] { stdfs::rename(file("other link"), file("link")); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.first);
        write("a", "old");
        write("b", "old");
        stdfs::remove(file("link"));
        stdfs::create_symlink("a", file("link"));
        stdfs::create_symlink("b", file("other link"));
        const WatchedSystem system;
        change = row.second;
        systemCalls().flock = [](int, int) {
            if (!change) return 0;
            std::exchange(change, {})();
            return (errno = EWOULDBLOCK, -1);
        };
        EXPECT_THAT(complaint(name("link")),
                    testing::HasSubstr("someone else created, changed or removed the file"));
        EXPECT_NE(readFile(file("a")), "new");
        EXPECT_EQ(readFile(file("b")), "old");
        stdfs::remove(file("other link"));
    }
}

TEST_F(ReplacementFileTest, StaysWhenAForkedProcessDestroysItsCopy) {
    const WatchedSystem system(WatchedSystem::FileSystem::Older);
    const SaveTarget found(name("a"));
    std::optional<ReplacementFile> replacement(std::in_place, found);
    replacement->file().writeAt(std::as_bytes(std::span("new", 3)), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        replacement.reset();
        ::_exit(0);
    }
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    replacement->commit();
    EXPECT_EQ(readFile(file("a")), "new");
    EXPECT_EQ(files(), std::set<std::string>{"a"});
}

// As a signal handler may do: both processes return into the save.
TEST_F(ReplacementFileTest, SavesInTheParentOnlyIfAForkComesInTheMiddle) {
    using FileSystem = WatchedSystem::FileSystem;
    for (const auto fileSystem : {FileSystem::Current, FileSystem::Older, FileSystem::Linkless}) {
        for (const char* old : {"", "old"}) {
            std::size_t number = 0;
            for (bool isForked = true; isForked && !HasFailure();) {
                SCOPED_TRACE(testing::Message()
                             << int(fileSystem) << " " << old << " " << ++number);
                stdfs::remove(file("a"));
                if (*old != '\0') write("a", old);
                const SaveTarget found(name("a"));
                std::optional<WatchedSystem> system(std::in_place, fileSystem);
                pid_t child = -1;
                int status = 0;
                isForked = false;
                bool isInPlace = false;
                system->strike(number, {"", test_support::Fault::Kind::Follows}, [&] {
                    isForked = true;
                    isInPlace = stdfs::exists(file("a")) && readFile(file("a")) == "new";
                    if ((child = ::fork()) > 0) ::waitpid(child, &status, 0);
                });
                std::string complaint;
                try {
                    ReplacementFile replacement(found);
                    replacement.file().writeAt(std::as_bytes(std::span("new", 3)), 0);
                    replacement.commit();
                } catch (const std::system_error& error) {
                    complaint = error.what();
                }
                if (child == 0) {
                    const bool isRefused = complaint.find("was forked") != std::string::npos;
                    ::_exit(isRefused || isInPlace ? 0 : 1);
                }
                const std::string_view at = system->struck() ? system->struck()->name : "";
                system.reset();  // reading would be watched, too
                EXPECT_EQ(complaint, "") << at;
                EXPECT_EQ(status, 0) << at;
                EXPECT_EQ(readFile(file("a")), "new") << at;
                EXPECT_EQ(files(), std::set<std::string>{"a"}) << at;
            }
            EXPECT_GT(number, 8u);
        }
    }
}

TEST_F(ReplacementFileTest, FindsATemporaryNameBesideTheLongestOne) {
    std::string longest = "n";
    while (longest.size() < 255)
        longest += "é";
    const WatchedSystem system(WatchedSystem::FileSystem::Older);
    save(name(longest.c_str()));
    EXPECT_EQ(files(), std::set<std::string>{longest});
}

// There may be none, or a sandbox may have files of its own there.
TEST_F(ReplacementFileTest, NeedsNoProc) {
    static const char* instead = nullptr;
    for (const char* other : {"/nowhere", "/proc/version"}) {
        instead = other;
        const WatchedSystem system;
        systemCalls().fstatat = [](int start, const char* file, struct stat* result, int flags) {
            const bool isInProc = std::string_view(file).starts_with("/proc/");
            return ::fstatat(start, isInProc ? instead : file, result, flags);
        };
        systemCalls().linkat = [](int, const char*, int, const char*, int) {
            return (errno = ENOENT, -1);
        };
        EXPECT_EQ(complaint(name("a")), "");
        EXPECT_EQ(files(), std::set<std::string>{"a"});
    }
}

TEST_F(ReplacementFileTest, PutsNothingButWhatWasWrittenInItsPlace) {
    write("a", "old");
    write("other", "other");
    static const std::string other = file("other").native();
    const auto really = systemCalls().linkat;
    systemCalls().linkat = [](int, const char*, int directory, const char* free, int) {
        return ::linkat(AT_FDCWD, other.c_str(), directory, free, 0);
    };
    EXPECT_EQ(complaint(name("a")), "a: cannot name the temporary file: Bad file descriptor");
    systemCalls().linkat = really;
    EXPECT_EQ(readFile(file("a")), "old");
    EXPECT_EQ(files(), (std::set<std::string>{"a", "other"}));
}

// Ways in which the descriptors of a thread are not those that the main thread has.
TEST_F(ReplacementFileTest, SavesFromAThreadWithDescriptorsOfItsOwn) {
    const auto saveElsewhere = [this](bool mainEnds) {
        const pid_t child = ::fork();
        if (child == 0) {
            write("other", "other");
            std::thread thread([&] {
                if (::unshare(CLONE_FILES) != 0) ::_exit(2);
                if (mainEnds) std::this_thread::sleep_for(std::chrono::milliseconds(50));
                const std::string complaint_ = complaint(name("a"));
                std::cerr << complaint_;
                ::_exit(complaint_.empty() ? 0 : 1);
            });
            // What the main thread has under the numbers that the other one is going to use.
            for (int i = 0; i < 20; ++i)
                ::open(file("other").c_str(), O_RDONLY | O_CLOEXEC);
            if (mainEnds) ::syscall(SYS_exit, 0);  // as pthread_exit(), but unwinds nothing
            thread.join();
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        return status;
    };
    for (const bool mainEnds : {false, true}) {
        stdfs::remove(file("a"));
        EXPECT_EQ(saveElsewhere(mainEnds), 0);
        EXPECT_EQ(readFile(file("a")), "new");
    }
}

TEST_F(ReplacementFileTest, KeepsWhatIsLoggedToClosedStreamsOutOfTheFile) {
    const pid_t child = ::fork();
    if (child == 0) {
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            ::close(stream);
        const SaveTarget found(name("a"));
        ReplacementFile replacement(found);
        const bool isLogged = ::write(STDERR_FILENO, "log", 3) == 3;
        replacement.file().writeAt(std::as_bytes(std::span("new", 3)), 0);
        replacement.commit();
        ::_exit(isLogged ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readFile(file("a")), "new");
}

TEST_F(ReplacementFileTest, ReplacesNoNewFileWhereARenameCannotRefuseTo) {
    const WatchedSystem system(WatchedSystem::FileSystem::Linkless);
    save(name("a"));
    EXPECT_EQ(files(), std::set<std::string>{"a"});
    stdfs::remove(file("a"));
    const SaveTarget found(name("a"));
    ReplacementFile replacement(found);
    write("a", "theirs");
    EXPECT_THROW(replacement.commit(), std::system_error);
    EXPECT_EQ(readFile(file("a")), "theirs");
    EXPECT_EQ(files(), std::set<std::string>{"a"});
}

}  // namespace
}  // namespace fl::filesystem
