#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>

#include "app/FileName.hpp"
#include "tools/qzapp/verbs/Snapshot.hpp"

namespace qzapp {

struct AppPair {
    FileName fileA, fileB;
    Snapshot a, b;

    // A text app has no parts, and says nothing of a package's version.
    bool bothPackaged() const { return a.form == Form::Packaged && b.form == Form::Packaged; }
    bool sameForm() const { return a.form == b.form; }
};

// What is said not to be compared when the two have different forms.
inline constexpr const char* kWithoutParts = "model and other parts";
inline constexpr const char* kWithoutVersion = "KVPKGVersion";

// Code beyond one of these is not compared line by line, which would take minutes and gigabytes.
inline constexpr std::uint64_t kMostDiffBytes = std::uint64_t{16} << 20;
inline constexpr std::uint64_t kMostDiffLines = 250'000;
// Whether that holds for both sides of the change of a code, as compare() describes it.
bool isDiffable(const nlohmann::ordered_json& codeChange);

// What differs, as docs/qzapp-json.md describes it.
nlohmann::ordered_json compare(const AppPair& pair);

}  // namespace qzapp
