#pragma once

#include "platform/opc/src/salvage/DamagedFile.hpp"

#include <algorithm>
#include <cstdint>

namespace opc::zip {

// The bytes [from, to) that an attempt to read an item's content has taken from the file, and the
// number of bytes that they inflated to.
struct Reading {
    std::uint64_t from, to;
    std::uint64_t produced = 0;
};

// The bytes that a search may read again without finding an item. When they are used up, the search
// gives up, so it ends whatever the file holds.
class SearchBudget {
public:
    explicit SearchBudget(std::uint64_t fileSize) : left_(kBytes + kBytesPerByte * fileSize) {}

    // What each failed attempt costs at least.
    static constexpr std::uint64_t kAttempt = 4096;

    bool isUsedUp() const { return left_ == 0; }
    // Takes `wasted` off the budget, and returns whether any is left.
    bool spend(std::uint64_t wasted) {
        left_ -= std::min(left_, wasted);
        return left_ > 0;
    }
    // Charges the budget for a reading that found no item. Bytes that are read for the first time
    // are free: all such readings together read the file once, and a large damaged item must not
    // use up the budget of those after it.
    void charge(const Reading& reading) {
        const bool isAgain = tried_.overlap(reading.from, reading.to);
        if (!isAgain) tried_.add(reading.from, reading.to);
        spend(kAttempt + (isAgain ? reading.produced : 0));
    }

private:
    static constexpr std::uint64_t kBytesPerByte = 2;
    static constexpr std::uint64_t kBytes = std::uint64_t{64} << 20;

    std::uint64_t left_;
    Ranges tried_;  // read without finding an item
};

}  // namespace opc::zip
