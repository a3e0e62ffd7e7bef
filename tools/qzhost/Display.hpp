#pragma once

#include <hvarray/Array.hpp>

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

namespace qzhost {

// Text on one line of a terminal: foundation::printable() of it.
std::string visible(std::u16string_view text);

// JSON as it is printed, with what a terminal acts on escaped.
std::string jsonText(const nlohmann::ordered_json& value);

// A scalar struct as a host displays it: a line for each field, its name and its value.
std::string displayStruct(const hvArray_tag& structure);

// A scalar struct as an object: a char array becomes a text, a cell array of them an array of texts,
// what is empty null. Throws std::runtime_error for any other value.
nlohmann::ordered_json structToJson(const hvArray_tag& structure);

}  // namespace qzhost
