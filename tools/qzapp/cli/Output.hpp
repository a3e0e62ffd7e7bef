#pragma once

#include <string_view>

#include "app/FileName.hpp"

namespace qzapp {

// What messages call standard output.
inline constexpr const char* kStandardOutput = "standard output";

// Writes all of `text` to standard output. Throws OutputError if that fails, so that a full disk is
// never taken for success. A reader that went away, like "| head", ends the process without a
// message.
void print(std::string_view text);

// Like print(), with all bytes of a file. Throws Error if the file cannot be read.
void printFile(const FileName& file);

// Like print(), but returns false if that fails, and does not end the process.
bool tryPrint(std::string_view text);

// Prints the report of a verb that has saved `saved`. Throws ReportError, which says that it is
// saved, if printing fails.
void printReport(const FileName& saved, std::string_view text);

}  // namespace qzapp
