#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

#include "app/FileName.hpp"
#include "app/Transaction.hpp"
#include "tools/qzapp/cli/Program.hpp"

namespace qzapp {

// Something that both sides changed differently. Ours is kept, but of lines both with marks.
struct Conflict {
    // A "field" of the metadata, "lines" of the code or all of its "text", a "part", a "relationship" of the
    // package, an "item" that is not a part, or "metadata" beside the fields.
    std::string what;
    std::string name;
    // The three values for people and programs; null where there is none.
    nlohmann::ordered_json base = nullptr, ours = nullptr, theirs = nullptr;
};

// Merges texts line by line with git or, where that is not installed, diff3(1). Makes its process when it is
// constructed (see Program).
class LineMerge {
public:
    // `markerSize` is the length of the lines' marks of a conflict.
    explicit LineMerge(unsigned markerSize);

    struct Merged {
        std::string text;
        bool isConflict;
    };
    // Nothing if the texts cannot be merged line by line, since they are too large or no text. Throws
    // Error if no program for it is installed.
    std::optional<Merged> merge(const std::string& base, const std::string& ours,
                                const std::string& theirs);

private:
    MemoryFile base_, ours_, theirs_;
    Program program_;
};

// One of the three files, held open, with a name that has the extension of its form. Without a file,
// there was no such app.
using MergeInput = std::optional<FileName>;

// Writes to `working`, which is Empty, the app `ours` with what `theirs` changed since `base`. It is
// complete, whatever the conflicts. Throws Error if one of the files cannot be read as a whole, or an app
// that is signed would be changed.
std::vector<Conflict> mergeApps(const MergeInput& base, const FileName& ours,
                                const FileName& theirs, Transaction& working, LineMerge& lines);

}  // namespace qzapp
