#pragma once

#include <foundation/Clock.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace opc::qzservices {

// Reads a date in one of the precisions of W3CDTF, from "2026" to "2026-11-21T10:15:30.25+01:00",
// and returns it in UTC. Month and day that are missing are the first, a missing time is midnight,
// and fractions of a second are dropped. A time must have a zone. Returns nullopt for anything else
// and for dates that do not exist.
std::optional<foundation::clock::Seconds> parseW3CDate(std::string_view text);

// Writes a date as "2026-11-21T09:15:30Z". Throws opc::Exception outside the years 0 to 9999.
std::string formatW3CDate(foundation::clock::Seconds time);

}  // namespace opc::qzservices
