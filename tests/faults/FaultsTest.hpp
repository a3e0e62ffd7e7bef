#pragma once

#include <fl/SystemCalls.hpp>
#include <foundation/Clock.hpp>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <utility>

#include "tests/faults/Operations.hpp"
#include "tests/support/FailingAllocator.hpp"
#include "tests/support/TemporaryDirectory.hpp"
#include "tests/support/WatchedSystem.hpp"

namespace faults {

inline constexpr const char* kApp = "app.kvpkg";

// Sanitizers make everything several times slower, so that then only some faults of the most
// numerous kinds are tried. A step that is no multiple of what repeats gets at all of its parts.
#if defined(QZ_SANITIZED)
inline constexpr std::size_t kStep = 13;
#else
inline constexpr std::size_t kStep = 1;
#endif

// Of a test of one operation.
template <class Operation>
std::string nameOf(const testing::TestParamInfo<Operation>& test) {
    return test.param.name;
}

template <class Work>
bool throws(Work work) {
    try {
        work();
    } catch (const std::exception&) {
        return true;
    }
    return false;
}

// How a process of its own ends that does it, as waitpid() tells. `work` returns its exit status.
template <class Work>
int statusOf(Work work) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(work());
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return status;
}

// The same calls give the same bytes, and wait for no disk, since nothing here ends the system.
class RepeatableTest : public testing::Test {
protected:
    RepeatableTest() {
        foundation::clock::set(foundation::clock::Seconds(std::chrono::seconds(1'700'000'000)));
        fl::filesystem::systemCalls().fsync = [](int) { return 0; };
    }
    ~RepeatableTest() override {
        fl::filesystem::systemCalls() = calls_;
        foundation::clock::set(std::nullopt);
    }

    const test_support::TemporaryDirectory work_;
    const Inputs inputs_;

private:
    const fl::filesystem::SystemCalls calls_ = fl::filesystem::systemCalls();
};

// A directory with an example app and nothing else.
class FaultsTest : public RepeatableTest {
protected:
    FaultsTest() {
        writeExample(app(), inputs_);
        example_ = content();
    }

    std::u16string app() const { return work_.name(kApp); }
    std::filesystem::path file() const { return work_.path() / kApp; }
    std::u16string scratch() const { return inputs_.directory.name("scratch"); }

    // Back to the example app, or to nothing, and no other file.
    void reset(bool isCreation = false) const {
        for (const auto& entry : std::filesystem::directory_iterator(work_.path()))
            std::filesystem::remove_all(entry.path());
        if (!isCreation) work_.write(kApp, example_);
    }
    std::string content() const {
        return std::filesystem::exists(file()) ? test_support::readFile(file())
                                               : test_support::Disk::kNothing;
    }
    // Files in the app's directory other than the app.
    std::ptrdiff_t leftovers() const {
        using Iterator = std::filesystem::directory_iterator;
        return std::count_if(Iterator(work_.path()), Iterator(),
                             [](const auto& entry) { return entry.path().filename() != kApp; });
    }
    // Allocations and open descriptors.
    static std::pair<std::size_t, std::ptrdiff_t> held() {
        using Iterator = std::filesystem::directory_iterator;
        return {test_support::outstandingAllocations(),
                std::distance(Iterator("/proc/self/fd"), Iterator())};
    }

    std::string example_;
};

}  // namespace faults
