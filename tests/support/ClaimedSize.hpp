#pragma once

#include <fl/SystemCalls.hpp>

#include <sys/stat.h>

#include <cstdint>

namespace test_support {

// While it lives, the system says of every open file that it has this size, as it says 0 of the
// files in /proc.
class ClaimedSize {
public:
    explicit ClaimedSize(std::uint64_t size) {
        claimed_ = static_cast<off_t>(size);
        fl::filesystem::systemCalls().fstat = [](int file, struct stat* status) {
            const int result = ::fstat(file, status);
            status->st_size = claimed_;
            return result;
        };
    }
    ~ClaimedSize() { fl::filesystem::systemCalls() = saved_; }
    ClaimedSize(const ClaimedSize&) = delete;
    ClaimedSize& operator=(const ClaimedSize&) = delete;

private:
    static inline off_t claimed_ = 0;
    fl::filesystem::SystemCalls saved_ = fl::filesystem::systemCalls();
};

}  // namespace test_support
