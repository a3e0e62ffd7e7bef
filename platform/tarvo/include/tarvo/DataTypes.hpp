#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <hvarray/Array.hpp>
#include <tarvo/COSMethodSignature.hpp>

#include <string_view>

namespace tarvo {

// A type that a signature may name.
struct DataType {
    std::string_view name;
    const char* description;  // as a message says it: "a text"
    bool (*accepts)(const hvArray_tag& value);
};

// Null for a type that is not known, or not yet.
const DataType* findDataType(InternedString name);

// "a 2x1 cell", "nothing"; for messages.
foundation::ustring describe(const hvArray_tag* value);

namespace factory {

// The text of a method's input: one row of characters, or none. Anything else is a host error.
PLATFORM_API foundation::ustring extractString(const hvArray_tag& value);

namespace detail {

// Makes the string types known, which signatures may name from then on.
PLATFORM_API void initStringDataTypes();

}  // namespace detail
}  // namespace factory
}  // namespace tarvo
