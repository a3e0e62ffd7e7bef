#pragma once

#include <appserialization/AppMetadata.hpp>

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace qzapp {

using appserialization::ustring;
using Field = appserialization::appmetadata::MetadataFieldEnum;
using List = std::vector<ustring>;

// A field's value: a text, or a list of texts.
using FieldValue = std::variant<ustring, List>;
// Values for some of the fields; what is not there is not touched.
using FieldValues = std::map<Field, FieldValue>;

// In the record's order.
std::span<const Field> allFields();
const char* nameOf(Field field);
bool isList(Field field);

// Exactly this name, or nothing.
std::optional<Field> findField(std::string_view name);
// What to say of a name that is none, with those that are.
std::string unknownField(std::string_view name);

// The value of a record that a reader returned, in which every field is present.
FieldValue valueOf(const appserialization::AppMetadata& record, Field field);
void setField(appserialization::AppMetadata& record, Field field, const FieldValue& value);

}  // namespace qzapp
