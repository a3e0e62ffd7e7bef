#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "app/check/Findings.hpp"

namespace qzapp {

// Code scanning refuses a run with more results.
inline constexpr std::size_t kMostSarifResults = 25'000;

// The SARIF 2.1.0 results for the findings of a file, each on a line.
std::string sarifResults(const std::string& file, const std::vector<Finding>& findings);

// Puts results together to a SARIF log, piece by piece, so that no more than a piece is in memory.
// The caller prints what add() and end() return.
class SarifLog {
public:
    // `results` has one on each line. Those beyond kMostSarifResults are only counted.
    std::string add(std::string_view results);
    std::string end();
    // How many results were left out.
    std::size_t left() const { return left_; }

private:
    std::size_t count_ = 0, left_ = 0;
};

}  // namespace qzapp
