// The appendix functions on long texts: text in front, in which no lookup can begin, changes no
// answer. AppendixScannerFuzz establishes the answers for short texts.

#include "fuzz/AppendixCases.hpp"

using fuzz::appendix::Case;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kLongestText = 8192;
    constexpr std::size_t kLongestFront = 4096;
    fuzz::Input input(data, size);
    const std::size_t front = input.number(2) % kLongestFront;
    const Case plain = fuzz::appendix::makeCase(input, kLongestText);
    if (hasPattern(plain)) return -1;
    Case longer = plain;
    longer.text.insert(0, front, u'x');
    for (const auto& lookup : fuzz::appendix::lookups())
        requireSame(lookup, longer, lookup.ours(longer), lookup.ours(plain));
    return 0;
}
