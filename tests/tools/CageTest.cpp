#include "tools/qzapp/cli/Cage.hpp"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <fl/FileDescriptor.hpp>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/TemporaryDirectory.hpp"
#include "tools/qzapp/cli/Worker.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;

// What code in a cage tries, and the errno that it gets, or 0 for success.
struct Attempt {
    const char* what;
    std::function<bool()> succeeds;
    int error;
};

bool opens(const char* name, int flags) {
    return static_cast<bool>(FileDescriptor(::open(name, flags | O_CLOEXEC, 0600)));
}

bool connects() {
    const FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in nobody{};
    nobody.sin_family = AF_INET;
    nobody.sin_port = htons(9);
    nobody.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&nobody), sizeof nobody) == 0;
}

bool startsProgram() {
    std::string name = "/bin/true";
    char* const arguments[] = {name.data(), nullptr};
    pid_t process = 0;
    errno = ::posix_spawn(&process, name.c_str(), nullptr, nullptr, arguments, environ);
    if (errno != 0) return false;
    ::waitpid(process, nullptr, 0);
    return true;
}

bool opensInThread(const char* name) {
    int error = 0;
    std::thread([&] { error = opens(name, O_RDONLY) ? 0 : errno; }).join();
    errno = error;
    return error == 0;
}

class CageTest : public testing::Test {
protected:
    // Asked for without the code under test.
    const long version_ = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, 1);
    const test_support::WorkingDirectory folder_;

    void SetUp() override {
        for (const char* name : {"apps/below", "work/in", "work/out", "elsewhere"})
            std::filesystem::create_directories(name);
        for (const char* name :
             {"named", "other", "apps/below/one", "elsewhere/target", "work/file"})
            folder_.write(name, "bytes");
        std::filesystem::create_symlink("elsewhere/target", "link");
    }

    void expect(Cage& cage, const std::vector<Attempt>& attempts) const {
        if (version_ <= 0) {
            std::puts("this kernel has no cage");
            GTEST_SKIP();
        }
        std::istringstream errors(inCage(cage, [&] {
            std::string text;
            for (const Attempt& attempt : attempts)
                text += std::to_string(attempt.succeeds() ? 0 : errno) + " ";
            return text;
        }));
        for (const Attempt& attempt : attempts) {
            int error = -1;
            errors >> error;
            EXPECT_EQ(error, attempt.error) << attempt.what;
        }
    }
};

TEST_F(CageTest, LetsNothingBeReachedButWhatIsNamedOrOpen) {
    const FileDescriptor held(::open("other", O_RDWR | O_CLOEXEC));
    const FileDescriptor memory(::memfd_create("memory", MFD_CLOEXEC));
    const std::string memoryName = "/proc/self/fd/" + std::to_string(memory.get());
    Cage cage;
    for (const char* name : {"named", "apps", "link", "nothing"})
        cage.mayRead(name);
    char byte = 0;
    expect(
        cage,
        {{"read", [] { return opens("named", O_RDONLY); }, 0},
         {"read below", [] { return opens("apps/below/one", O_RDONLY); }, 0},
         {"list", [] { return opens("apps/below", O_RDONLY | O_DIRECTORY); }, 0},
         {"follow a link", [] { return opens("link", O_RDONLY); }, 0},
         {"read what is open", [&] { return ::pread(held.get(), &byte, 1, 0) == 1; }, 0},
         {"write what is open", [&] { return ::pwrite(held.get(), "x", 1, 0) == 1; }, 0},
         {"open memory", [&] { return opens(memoryName.c_str(), O_RDWR); }, 0},
         {"see its own memory map", [] { return opens("/proc/self/maps", O_RDONLY); }, 0},
         {"read another", [] { return opens("other", O_RDONLY); }, EACCES},
         {"read another in a thread", [] { return opensInThread("other"); }, EACCES},
         {"read the system's", [] { return opens("/etc/passwd", O_RDONLY); }, EACCES},
         {"open again for writing", [] { return opens("named", O_WRONLY); }, EACCES},
         {"write below", [] { return opens("apps/below/one", O_WRONLY); }, EACCES},
         {"make", [] { return opens("apps/new", O_CREAT | O_WRONLY); }, EACCES},
         {"make a folder", [] { return ::mkdir("apps/new", 0700) == 0; }, EACCES},
         {"remove", [] { return ::unlink("named") == 0; }, EACCES},
         {"rename", [] { return ::rename("named", "new") == 0; }, EACCES},
         {"list another", [] { return opens(".", O_RDONLY | O_DIRECTORY); }, EACCES},
         {"start a program", startsProgram, EACCES},
         {"truncate", [] { return ::truncate("named", 0) == 0; }, version_ >= 3 ? EACCES : 0},
         {"connect", connects, version_ >= 4 ? EACCES : ECONNREFUSED},
         {"send a signal", [] { return ::kill(::getppid(), 0) == 0; }, version_ >= 6 ? EPERM : 0}});
}

TEST_F(CageTest, LetsAllBeDoneBelowAFolderThatMayChange) {
    if (version_ == 1) GTEST_SKIP() << "this kernel lets nothing be moved in a cage";
    const FileDescriptor work(::open("work", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    Cage cage;
    cage.mayChange(work);
    expect(cage, {{"make", [] { return opens("work/in/new", O_CREAT | O_EXCL | O_RDWR); }, 0},
                  {"read", [] { return opens("work/file", O_RDONLY); }, 0},
                  {"move", [] { return ::rename("work/in/new", "work/out/new") == 0; }, 0},
                  {"remove", [] { return ::unlink("work/out/new") == 0; }, 0},
                  {"make a folder", [] { return ::mkdir("work/more", 0700) == 0; }, 0},
                  {"remove a folder", [] { return ::rmdir("work/more") == 0; }, 0},
                  {"move out", [] { return ::rename("work/file", "file") == 0; }, EACCES},
                  {"move in", [] { return ::rename("other", "work/other") == 0; }, EACCES},
                  {"make beside it", [] { return opens("new", O_CREAT | O_WRONLY); }, EACCES},
                  {"read beside it", [] { return opens("other", O_RDONLY); }, EACCES}});
}

TEST_F(CageTest, LetsFoldersBeRenamedWithoutWhatIsInThem) {
    const FileDescriptor work(::open("work", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    Cage cage;
    cage.mayRenameFoldersIn(work);
    expect(cage, {{"rename", [] { return ::rename("work/in", "work/new") == 0; }, 0},
                  {"remove", [] { return ::rmdir("work/new") == 0; }, 0},
                  {"read", [] { return opens("work/file", O_RDONLY); }, EACCES},
                  {"make", [] { return opens("work/made", O_CREAT | O_WRONLY); }, EACCES},
                  {"remove a file", [] { return ::unlink("work/file") == 0; }, EACCES}});
}

TEST_F(CageTest, GivesNoProgramMorePrivilegesOnAnyKernel) {
    Cage cage;
    EXPECT_EQ(inCage(cage, [] { return std::to_string(::prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0)); }),
              "1");
    EXPECT_EQ(::prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0), 0);
}

std::string failureOf(const std::function<std::string()>& work) {
    Cage cage;
    try {
        return "no failure: " + inCage(cage, work);
    } catch (const std::bad_alloc&) {
        return "no memory";
    } catch (const std::exception& e) {
        return e.what();
    }
}

TEST(InCage, TellsWhatBecameOfTheWork) {
    const std::string large(1 << 20, 'x');
    EXPECT_EQ(failureOf([&] { return large; }), "no failure: " + large);
    EXPECT_EQ(failureOf([]() -> std::string { throw std::runtime_error("a.k: why"); }), "a.k: why");
    EXPECT_EQ(failureOf([]() -> std::string { throw std::bad_alloc(); }), "no memory");
    EXPECT_EQ(failureOf([]() -> std::string {
                  ::raise(SIGKILL);
                  return "";
              }),
              "the process that reads the apps was ended; try again");
}

}  // namespace
}  // namespace qzapp
