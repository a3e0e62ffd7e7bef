#pragma once

#include <string_view>
#include <vector>

#include "app/check/Findings.hpp"
#include "app/check/PackageView.hpp"

namespace qzapp {

// The groups of rules. Each adds what it finds, and goes on behind what is broken.
void checkContainer(const PackageView& package, Findings& findings);
void checkPackage(const PackageView& package, Findings& findings);
// Those of packaged apps: layout and metadata.
void checkApp(const PackageView& package, Findings& findings);
void checkText(const FileName& file, Findings& findings);

// All groups that concern the file, by its name: packaged app, text app or any other package. Throws
// Error when the file cannot be read at all.
Findings checkFile(const FileName& file);

// Rules of images, for both forms of apps: `format` is the extension, or what the data URI says.
void checkImage(const FileName& file, const std::string& part, std::string_view format,
                std::string_view bytes, Findings& findings);

// What a repaired copy of a package is called in fixes.
FileName repairedName(const FileName& file);
// The command that writes it.
std::string repairCommand(const FileName& file);
// The fix for what is damaged in a package.
std::string repairFix(const PackageView& package);

}  // namespace qzapp
