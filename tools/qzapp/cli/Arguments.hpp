#pragma once

#include <foundation/ustring.hpp>

#include <functional>
#include <string>
#include <vector>

#include "app/FieldValues.hpp"
#include "app/FileName.hpp"

namespace qzapp {

// Checks of what the command line gives. All throw UsageError, unless they say otherwise.

// The value of an option as text. Throws if it is not valid UTF-8.
foundation::ustring textArgument(const std::string& option, const std::string& value);
// A file's name, which must not be empty and must be valid UTF-8. Opens nothing; for a file to be
// read use inputArgument() or appArgument().
FileName fileArgument(const std::string& value);

// Checks, for CLI11, that a value is a number from 1 to `most`.
std::function<std::string(const std::string&)> numberUpTo(unsigned most);

// The metadata field of this name, which `option` gives.
Field fieldArgument(const std::string& option, const std::string& name);
// How the value of a field can be given, for the help of a verb: a paragraph.
std::string valueHelp();
// The names of all fields, for the help of a verb: paragraphs with a blank line before each.
std::string fieldHelp();

// The name of a packaged app to be made, which must end in ".kvpkg".
FileName newPackageArgument(const std::string& value);

// Throws Error if the name exists, even as a dangling link, and `force` does not allow to replace
// it.
void requireAbsent(const FileName& file, bool force);

// Throws if `out` is the same file, through whatever link, as one of `inputs`, which must be held
// open, or as the file that standard input is read from. Even --force replaces no input.
void requireNoInput(const FileName& out, const std::vector<FileName>& inputs);

// Throws if standard output goes to the same file as one of `inputs` comes from.
void requireOutputIsNoInput(const std::vector<FileName>& inputs);

}  // namespace qzapp
