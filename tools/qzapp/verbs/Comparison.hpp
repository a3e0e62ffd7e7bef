#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>

#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "tools/qzapp/cli/Program.hpp"
#include "tools/qzapp/verbs/Snapshot.hpp"

namespace qzapp {

// The two apps that are compared.
struct AppPair {
    FileName fileA, fileB;
    Snapshot a, b;

    bool bothPackaged() const { return a.form == Form::Packaged && b.form == Form::Packaged; }
    bool sameForm() const { return a.form == b.form; }
};

// What cannot be compared if the two have different forms, because a text app has neither.
inline constexpr const char* kWithoutParts = "model and other parts";
inline constexpr const char* kWithoutVersion = "KVPKGVersion";

// Code with more bytes or lines than this is not compared line by line, which could take minutes
// and gigabytes.
inline constexpr std::uint64_t kMostDiffBytes = std::uint64_t{16} << 20;
inline constexpr std::uint64_t kMostDiffLines = 250'000;
// Whether both sides of a code change, as compare() returns it, are small enough for that.
bool isDiffable(const nlohmann::ordered_json& codeChange);

// Compares texts with diff(1), whose process it prepares when it is constructed (see Program).
class LineComparison {
public:
    LineComparison();
    // The hunks of a unified diff, or null if diff(1) is not installed.
    nlohmann::ordered_json hunksOf(const std::string& a, const std::string& b);

private:
    MemoryFile a_, b_;
    Program program_;
};

// What differs, as the JSON object that docs/qzapp-json.md describes.
nlohmann::ordered_json compare(const AppPair& pair, LineComparison& lines);

}  // namespace qzapp
