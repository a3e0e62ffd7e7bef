#pragma once

#include <optional>
#include <string>

#include "tools/qzapp/cli/Program.hpp"

namespace qzapp {

// Merges texts line by line with git or, where that is not installed, diff3(1). Makes its process
// when it is constructed (see Program).
class LineMerge {
public:
    // `markerSize` is the length of the lines' marks of a conflict.
    explicit LineMerge(unsigned markerSize);

    struct Merged {
        std::string text;
        bool isConflict;
    };
    // Nothing if the texts cannot be merged line by line, since they are too large or no text.
    // Throws Error if no program for it is installed, or the program fails.
    std::optional<Merged> merge(const std::string& base, const std::string& ours,
                                const std::string& theirs);

private:
    MemoryFile base_, ours_, theirs_;
    Program program_;
};

}  // namespace qzapp
