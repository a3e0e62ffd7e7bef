#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "app/FileName.hpp"
#include "app/check/Findings.hpp"

namespace qzapp {

// What "qzapp check" prints for a file: "atlas.kvpkg: 1 error, 2 warnings", then each finding.
// Those less severe than `least` are left out.
std::string sheetOf(const FileName& file, const Findings& findings,
                    Severity least = Severity::Note);
// What "qzapp check --rules" prints: the table of the rules.
std::string rulesSheet();

// What a file counts as in the total: its most severe finding, or that it could not be read.
enum class FileKind { Clean, Noted, Warned, Wrong, Unread };
FileKind kindOf(const Findings& findings);

// Counts files by what was found in them.
class CheckTotals {
public:
    void add(FileKind kind);
    // "12 files: 9 without findings, 2 with warnings, 1 with errors", on a line.
    std::string text() const;

private:
    std::array<std::size_t, 5> counts_{};
};

}  // namespace qzapp
