#pragma once

#include <appserialization/AppMetadata.hpp>
#include <nlohmann/json.hpp>

#include <string>

#include "app/FieldValues.hpp"
#include "app/FileName.hpp"

namespace qzapp {

// An object of all fourteen fields by name, in the order of allFields(); lists are arrays.
nlohmann::ordered_json toJson(const appserialization::AppMetadata& record);
// An object of the fields that `values` has.
nlohmann::ordered_json toJson(const FieldValues& values);
// A string or an array of strings.
nlohmann::ordered_json valueToJson(const FieldValue& value);

// Reads a JSON object of metadata fields, such as "qzapp extract" writes; it may leave fields out.
// Throws Error about the file if the text is not JSON, a name is unknown or given twice, or a value
// has the wrong type.
FieldValues readMetadataJson(const FileName& file);

// What verbs print for a file that could not be read, where they print an object for each file.
nlohmann::ordered_json failureJson(const std::string& file, const std::string& reason);

// JSON text that ends with a line end: jsonLine() on one line, jsonDocument() indented, for people
// to edit. Bytes that are not UTF-8 become U+FFFD, and characters that a terminal acts on are
// escaped.
std::string jsonLine(const nlohmann::ordered_json& value);
std::string jsonDocument(const nlohmann::ordered_json& value);

}  // namespace qzapp
