#pragma once

#include <appserialization/AppMetadata.hpp>
#include <nlohmann/json.hpp>

#include <string>

#include "app/Fields.hpp"
#include "app/FileName.hpp"

namespace qzapp {

// All fourteen fields by name, in the record's order, lists as arrays.
nlohmann::ordered_json toJson(const appserialization::AppMetadata& record);
// The same of values of all fields; and of one.
nlohmann::ordered_json toJson(const FieldValues& values);
nlohmann::ordered_json valueToJson(const FieldValue& value);

// The fields that a metadata file names. Throws Error about the file for text that is not JSON, an
// unknown name, a name given twice and a value of the wrong type.
FieldValues readMetadataJson(const FileName& file);

// JSON on one line, and JSON for people to edit. Never throws on odd text.
std::string jsonLine(const nlohmann::ordered_json& value);
std::string jsonDocument(const nlohmann::ordered_json& value);

}  // namespace qzapp
