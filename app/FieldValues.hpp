#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/ustring.hpp>

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
// Values for some of the fields. An edit leaves all other fields alone.
using FieldValues = std::map<Field, FieldValue>;

// Items to be added to and removed from a list, whatever else it holds.
struct ListEdit {
    List added, removed;
};
using ListEdits = std::map<Field, ListEdit>;
// The list of a field after such an edit, and a note on each item that was there, or was not,
// already.
struct EditedList {
    List items;
    std::vector<std::string> notes;
};
// Adds what `items` lacks at its end, and removes each item that equals one of those to be removed.
EditedList edited(Field field, List items, const ListEdit& edit);

// All fields, in the order of their enumerators, in which they are shown.
std::span<const Field> allFields();
const char* nameOf(Field field);
bool isList(Field field);

// The field of exactly this name, in its case, or nothing.
std::optional<Field> findField(std::string_view name);
// The field of this name in any case, as a person may write it.
std::optional<Field> findFieldInAnyCase(std::string_view name);
// The error message for a name that is not a field's. It proposes the nearest name, or lists all.
std::string unknownField(std::string_view name);

// The value of a field. A field that the record lacks is an empty text or list; a record that a
// reader returned lacks none.
FieldValue valueOf(const appserialization::AppMetadata& record, Field field);
// `value` must be a list exactly if the field is one (see isList()).
void setField(appserialization::AppMetadata& record, Field field, const FieldValue& value);

}  // namespace qzapp
