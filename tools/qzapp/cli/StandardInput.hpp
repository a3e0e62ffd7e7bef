#pragma once

#include <optional>
#include <string>
#include <vector>

#include "app/FileName.hpp"

namespace qzapp {

// The name of standard input and standard output on the command line.
inline constexpr const char* kStandardStream = "-";
// What messages and reports call standard input.
inline constexpr const char* kStandardInputName = "standard input";

enum class MayBeEmpty { No, Yes };

// Opens and holds the input file that `value` names. "-" is standard input, which is copied to a
// nameless file at the first call and then read like any other file. Throws Error if the file
// cannot be opened. Unless it may be, throws also if standard input is empty, because then the
// program that should have filled it has failed.
FileName inputArgument(const std::string& value, MayBeEmpty mayBeEmpty = MayBeEmpty::No);

// Like inputArgument(), for content of an app, which may also come from a pipe: a FIFO, or
// "/dev/fd/N", which shells put in the place of "<(COMMAND)". It is copied like standard input, so
// several of them can be read, each once.
FileName contentArgument(const std::string& value);

// Like inputArgument(), for an app. Readers recognise the form of an app by its extension, so
// standard input gets one: ".kvpkg" if there is a zero byte near its start, as in any zip file,
// otherwise ".k".
FileName appArgument(const std::string& value);

// Like appArgument(), for a file that git names: by any bytes, and with its extension in any case.
// git keeps what is read from it for every file of the same content, so nothing may depend on the
// name.
FileName gitArgument(const std::string& value);

// Throws UsageError if more than one of these options is "-".
void requireOneStandardInput(const std::vector<std::optional<std::string>>& values);

}  // namespace qzapp
