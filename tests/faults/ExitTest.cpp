// What happens while a process ends: the libraries keep whatever they need until it is gone.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <appserialization/AppFileReader.hpp>

#include <set>
#include <string>
#include <vector>

#include "tests/faults/FaultsTest.hpp"

namespace faults {

using appserialization::AppFileReader;

namespace {

#if defined(QZ_SANITIZED)
constexpr int kRounds = 10;
#else
constexpr int kRounds = 100;
#endif

// Runs the program that saves while its process ends; returns its exit status.
int endOfProcess(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), QZ_END_OF_PROCESS);
    std::vector<char*> pointers;
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    pid_t child = 0;
    EXPECT_EQ(::posix_spawn(&child, pointers[0], nullptr, nullptr, pointers.data(), environ), 0);
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return status;
}

class ExitTest : public FaultsTest {
protected:
    std::u16string author() const {
        return AppFileReader(app()).getAppMetadata().getAuthor().value();
    }
};

TEST_F(ExitTest, StaticObjectSavesInItsDestructor) {
    EXPECT_EQ(endOfProcess({"static", file()}), 0);
    EXPECT_EQ(author(), u"Static");
    // It has found the properties that were there, and added none.
    const std::string all = readPackage(app());
    const std::string type = "/metadata/core-properties/";
    EXPECT_NE(all.find(type), std::string::npos);
    EXPECT_EQ(all.find(type), all.rfind(type));
}

TEST_F(ExitTest, DetachedThreadSavesWhileMainReturns) {
    for (int round = 0; round < kRounds && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        reset();
        // Begins to end at another moment of a save each time.
        EXPECT_EQ(endOfProcess({"thread", file(), std::to_string(round * 37 % 3000)}), 0);
        EXPECT_TRUE((std::set<std::u16string>{u"One", u"Other"}).contains(author()));
        readPackage(app());
    }
}

}  // namespace
}  // namespace faults
