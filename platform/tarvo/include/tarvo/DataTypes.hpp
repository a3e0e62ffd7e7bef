#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <hvarray/Array.hpp>
#include <tarvo/InternedString.hpp>

#include <string_view>

namespace tarvo {

// A type that a signature may name. All of them are constants.
struct DataType {
    std::string_view name;
    const char* description;                    // for messages: "a text"
    bool (*accepts)(const hvArray_tag& value);  // whether a value is of the type
};

// The type with this name; null if it is unknown, or is a string type and initStringDataTypes() has
// not been called yet.
const DataType* findDataType(InternedString name);

// A value, for messages: "a 2x1 cell", or "nothing" for null.
foundation::ustring describe(const hvArray_tag* value);

namespace factory {

// The text of a method's input, which must be one row of characters or an empty char array. Throws
// messages::HostError (NotAText) for anything else.
PLATFORM_API foundation::ustring extractString(const hvArray_tag& value);

namespace detail {

// Makes the string types known for the rest of the process. Call it before making a signature that
// names one; calling it again changes nothing. Safe from any thread.
PLATFORM_API void initStringDataTypes();

}  // namespace detail
}  // namespace factory
}  // namespace tarvo
