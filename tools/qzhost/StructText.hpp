#pragma once

#include <hvarray/Array.hpp>

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

namespace qzhost {

// Text made safe to show on one line of a terminal, by foundation::printable().
std::string visible(std::u16string_view text);

// JSON as it is printed: indented, with what a terminal acts on escaped.
std::string jsonText(const nlohmann::ordered_json& value);

// A 1-by-1 struct as a host displays it, with a line for each field.
std::string displayStruct(const hvArray_tag& structure);

// A 1-by-1 struct as an object. A char array becomes a string, a cell array of char arrays an array
// of strings, a null element null. Throws std::runtime_error for any other value.
nlohmann::ordered_json structToJson(const hvArray_tag& structure);

}  // namespace qzhost
