#pragma once

#include <cstdint>
#include <span>
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

// For the tables of the corpus. Names are made of the table's and what is broken, or its beginning;
// outcomes may hold the abbreviations of Corpus.cpp.
test_support::BuiltZip goodZip();
test_support::BuiltItem& itemOf(test_support::BuiltZip& zip, std::string_view name);
void addPackagedApp(Corpus& corpus, std::string_view table, std::string_view what,
                    const test_support::BuiltZip& zip, const std::string& outcome);
void addTextApp(Corpus& corpus, std::string_view table, const std::string& text,
                const std::string& outcome);

// A change of the good file.
struct ChangeRow {
    const char* what;
    void (*apply)(test_support::BuiltZip& zip);
    const char* outcome = "";
};
void addChanges(Corpus& corpus, std::string_view table, std::span<const ChangeRow> rows,
                const std::string& start);

std::string repeated(std::string_view piece, std::size_t count);

void addZipFiles(Corpus& corpus);
void addPackageFiles(Corpus& corpus);
void addXmlFiles(Corpus& corpus);
void addTextFiles(Corpus& corpus);

}  // namespace hostile
