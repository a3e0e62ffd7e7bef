// The appendix functions against the regular expressions that define them.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/support/AppendixComparison.hpp"

namespace {

// A backtracking expression recurses once a byte.
constexpr std::size_t kLongestInput = 256;

test_support::AppendixTally tally;

void printTally() {
    std::printf("%llu answers compared, in %llu of them something was found\n",
                static_cast<unsigned long long>(tally.compared),
                static_cast<unsigned long long>(tally.found));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return std::atexit(printTally);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > kLongestInput) return -1;
    const auto input = test_support::makeAppendixCase({data, size});
    const std::string difference = test_support::compareWithExpressions(input, tally);
    if (difference.empty()) return 0;
    std::fprintf(stderr, "%s\n", difference.c_str());
    std::abort();
}
