#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/FileName.hpp"
#include "tools/qzapp/catalogue/Entry.hpp"

namespace qzapp {

// What "qzapp index --status" tells.
struct CatalogueStatus {
    std::uint64_t bytes = 0;
    std::int64_t schema = 0;
    std::int64_t apps = 0, packaged = 0, text = 0, unreadable = 0;
    std::int64_t withErrors = 0, withWarnings = 0, withoutScreenshot = 0;
    std::int64_t duplicateUuids = 0, duplicateFiles = 0;  // apps that share it with another one
    std::vector<Source> sources;                          // the catalogue itself first
};

// Reads a catalogue, all of it, which is also checked. Throws Error as openCatalogue() and
// requireWhole() do. Enter a cage before, because the catalogue may come from a stranger.
CatalogueStatus statusOf(const FileName& catalogue);

std::string sheetOf(const FileName& catalogue, const CatalogueStatus& status);
std::string jsonOf(const FileName& catalogue, const CatalogueStatus& status);

// UTC, as in "2026-11-21T13:56:31Z".
std::string timeText(std::int64_t nanoseconds);

}  // namespace qzapp
