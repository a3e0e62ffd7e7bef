#pragma once

#include <string>

#include "fuzz/Fuzzing.hpp"
#include "tests/support/ZipBuilder.hpp"

namespace fuzz {

// The package that an input describes.
struct DrawnPackage {
    test_support::BuiltZip zip;
    std::string bytes;
    bool isOverwritten = false;  // some bytes were changed after the zip file was built
};

// Builds a good package, then changes and damages it as the input says, until the input is used up
// or ends the program. Checksums and offsets follow the changes, so that most packages pass these
// checks.
DrawnPackage drawPackage(Input& input);

// Draws a name that is taken, nearly taken, odd or free in such a package; and content.
std::string drawItemName(Input& input);
std::string drawContent(Input& input);

}  // namespace fuzz
