#pragma once

#include <foundation/ustring.hpp>
#include <opc/CoreProperties.hpp>

#include <optional>
#include <string>
#include <string_view>

#include "app/FieldValues.hpp"
#include "app/FileName.hpp"
#include "app/check/Findings.hpp"
#include "app/check/PackageView.hpp"

namespace qzapp {

// The groups of rules. Each adds what it finds to `findings` and carries on after what is broken.

// Whether the file is a zip file with nothing in it of what its name promises, an app or a package.
// Every rule would complain about it.
bool isOfAnotherKind(const PackageView& package);
// Adds that the file is of another kind, and what is damaged in it.
void checkOtherZip(const PackageView& package, Findings& findings);
// The rules of zip files.
void checkContainer(const PackageView& package, Findings& findings);
// The rules of packages: content types, relationships, core properties. Returns the core properties
// if readers accept them.
std::optional<opc::qzservices::CoreProperties> checkPackage(const PackageView& package,
                                                            Findings& findings);
// The rules of packaged apps: layout and metadata. `properties` are what checkPackage() returned.
void checkApp(const PackageView& package,
              const std::optional<opc::qzservices::CoreProperties>& properties, Findings& findings);
// The rules of text apps.
void checkText(const FileName& file, Findings& findings);

// Whether checkFile() takes the file for a text app, by its name.
bool isTextName(const FileName& file);

// Checks all groups that apply to a file of this name: a packaged app, a text app or any other
// package. `isOpen` says that a reader has it open. Throws Error if the file cannot be read at all.
Findings checkFile(const FileName& file, bool isOpen = false);

// The rules of screenshots, for both forms of apps. `part` is the part or section that holds the
// image, `format` the extension of the part's name, or what the data URI says, `fix` how to set
// another.
void checkImage(const std::string& part, std::string_view format, std::string_view bytes,
                const std::string& fix, Findings& findings);

// Whether a merge has left a conflict in the code, for both forms of apps. `text` is the code of a
// packaged app or a whole text app, `fix` how to settle the conflict.
void checkConflicts(const std::string& part, std::string_view text, const std::string& fix,
                    Findings& findings);

// The rules of values that readers take but that make no sense, for both forms of apps. `fix` is
// how to set another value.
void checkValue(Field field, const foundation::ustring& value, const std::string& fix,
                Findings& findings);

// The file under the name that an edit takes: "atlas.kvpkg" for "atlas.KVPKG".
FileName lowerCaseName(const FileName& file);
// The name that fixes propose for a repaired copy: "atlas-repaired.kvpkg".
FileName repairedName(const FileName& file);
// The command that writes the repaired copy.
std::string repairCommand(const FileName& file);
// The fix for damage in a package: repairCommand(), or another file if a repair would find nothing.
std::string repairFix(const PackageView& package);

}  // namespace qzapp
