#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/ZipBuilder.hpp"

namespace hostile {

// A file as a stranger might send it: a good one with one thing broken.
struct HostileFile {
    std::string name;           // ends in ".kvpkg" or ".k"
    std::string bytes;          // what it is
    std::uint64_t content = 0;  // bytes that it stands for when all is unpacked
    // How what readers get from it differs from what they get from the good file (see Outcome.hpp).
    std::string outcome;
};
using Corpus = std::vector<HostileFile>;

const Corpus& corpus();

// The good files, for comparison.
HostileFile goodPackagedApp();
HostileFile goodTextApp();

// For the tables of the corpus. Names are made of the table's and what is broken.
test_support::BuiltZip goodZip();
test_support::BuiltItem& itemOf(test_support::BuiltZip& zip, std::string_view name);
HostileFile packagedApp(std::string_view table, std::string_view why,
                        const test_support::BuiltZip& zip, std::string outcome);
HostileFile textApp(std::string_view table, std::string_view why, std::string text,
                    std::string outcome);
// The outcome with `text` in the place of the abbreviation, when it ends in that.
std::string completed(std::string outcome, std::string_view abbreviation, std::string_view text);
std::string repeated(std::string_view piece, std::size_t count);

void addZipFiles(Corpus& corpus);
void addPackageFiles(Corpus& corpus);
void addXmlFiles(Corpus& corpus);
void addTextFiles(Corpus& corpus);

}  // namespace hostile
