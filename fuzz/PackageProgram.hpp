#pragma once

#include <string>

#include "fuzz/Fuzzing.hpp"
#include "tests/support/ZipBuilder.hpp"

namespace fuzz {

// A package that an input asks for.
struct DrawnPackage {
    test_support::BuiltZip zip;
    std::string bytes;
    bool isOverwritten = false;  // some bytes are not what the zip file was built with
};

// Builds a good package, and changes and breaks it as the input says, up to where the input is used up
// or says that it is enough. Checksums and offsets follow the changes, so that most get past them.
DrawnPackage drawPackage(Input& input);

// Names that are taken, nearly taken, odd or free in such a package, and content.
std::string drawItemName(Input& input);
std::string drawContent(Input& input);

}  // namespace fuzz
