#include "tools/qzapp/git/LineMerge.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "app/Error.hpp"
#include "tools/qzapp/verbs/Comparison.hpp"

namespace qzapp {
namespace {

constexpr int kMostConflicts = 127;  // git stops counting there; larger statuses are failures

bool isMergeable(const std::string& text) {
    return text.find('\0') == std::string::npos && text.size() <= kMostDiffBytes &&
           static_cast<std::uint64_t>(std::ranges::count(text, '\n')) <= kMostDiffLines;
}

}  // namespace

// git reads the configuration of the repository that it is called in, unless it is told of another
// one.
LineMerge::LineMerge(unsigned markerSize)
    : program_({{"git", "--git-dir=/dev/null", "merge-file", "-p", "-q",
                 fmt::format("--marker-size={}", markerSize), "-L", "ours", "-L", "base", "-L",
                 "theirs", ours_.name(), base_.name(), theirs_.name()},
                {"diff3", "-m", "-E", "-a", "-L", "ours", "-L", "base", "-L", "theirs",
                 ours_.name(), base_.name(), theirs_.name()}}) {}

std::optional<LineMerge::Merged> LineMerge::merge(const std::string& base, const std::string& ours,
                                                  const std::string& theirs) {
    if (!isMergeable(base) || !isMergeable(ours) || !isMergeable(theirs)) return std::nullopt;
    base_.fill(base);
    ours_.fill(ours);
    theirs_.fill(theirs);
    auto end = program_.run();
    if (!end) throw Error("merge", "needs git or diff3 to merge the code; install one of them");
    const int most = end->name == "git" ? kMostConflicts : 1;
    if (end->status < 0 || end->status > most)
        throw Error("merge", "the lines of the code cannot be merged: " + end->failure());
    return Merged{std::move(end->output), end->status != 0};
}

}  // namespace qzapp
