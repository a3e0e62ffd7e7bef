#pragma once

#include <nlohmann/json.hpp>

#include "tools/qzapp/FileName.hpp"
#include "tools/qzapp/Snapshot.hpp"

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

// What differs, as docs/qzapp-json.md describes it.
nlohmann::ordered_json compare(const AppPair& pair);

}  // namespace qzapp
