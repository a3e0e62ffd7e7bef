#pragma once

#include <fl/SystemCalls.hpp>
#include <foundation/Clock.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>

#include "tests/faults/Operations.hpp"
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

// A directory with an example app and nothing else, and one with the files that operations use.
class FaultsTest : public testing::Test {
protected:
    FaultsTest() {
        // The same calls then give the same bytes.
        foundation::clock::set(foundation::clock::Seconds(std::chrono::seconds(1'700'000'000)));
        // Disks are slow, and nothing here ends the system.
        fl::filesystem::systemCalls().fsync = [](int) { return 0; };
        writeExample(app(), inputs_);
        example_ = content();
    }
    ~FaultsTest() override {
        fl::filesystem::systemCalls() = calls_;
        foundation::clock::set(std::nullopt);
    }

    std::u16string app() const { return work_.name(kApp); }
    std::filesystem::path file() const { return work_.path() / kApp; }
    std::u16string scratch() const { return other_.name("scratch"); }

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
    std::size_t leftovers() const {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(work_.path()))
            count += entry.path().filename() == kApp ? 0 : 1;
        return count;
    }
    static std::ptrdiff_t openDescriptors() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    }

    const test_support::TemporaryDirectory work_, other_;
    const Inputs inputs_{other_.path().u16string()};
    std::string example_;

private:
    const fl::filesystem::SystemCalls calls_ = fl::filesystem::systemCalls();
};

}  // namespace faults
