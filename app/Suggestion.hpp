#pragma once

#include <span>
#include <string>
#include <string_view>

namespace qzapp {

// Whether the texts differ at most in the case of ASCII letters.
bool isSameInAnyCase(std::string_view a, std::string_view b);

// Which of the names someone who wrote `given` probably meant: the one that differs in the fewest
// characters, whatever their case, counting two that are exchanged as one. Empty if none is near.
std::string_view nearest(std::string_view given, std::span<const std::string_view> names);

// Returns `; did you mean "NAME"?`, to be put after what is wrong with `given`, or `otherwise` if
// no name is near.
std::string didYouMean(std::string_view given, std::span<const std::string_view> names,
                       const std::string& otherwise);

}  // namespace qzapp
