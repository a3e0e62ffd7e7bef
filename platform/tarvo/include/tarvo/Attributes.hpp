#pragma once

#include <optional>
#include <string>
#include <variant>

namespace tarvo {

// A text that a description may lack.
using OptionalText = std::optional<std::string>;

using AttributeValue = std::variant<bool, int, OptionalText>;

// One attribute of a class or method description, by which a host can list all of them without
// calling each getter itself. Attributes are constants.
template <class Info>
struct Attribute {
    const char* name;                             // of the getter, such as "isHidden"
    AttributeValue (*valueOf)(const Info& info);  // what the getter of `info` returns
};

}  // namespace tarvo

// A description lists its attributes once, as rows of type, getter and default value
// (TARVO_CLASS_ATTRIBUTES, TARVO_METHOD_ATTRIBUTES). These two macros are applied to that list.

// Makes the getter of a row. A derived description overrides it to differ from the default.
#define TARVO_DECLARE_GETTER(Type, getter, defaultValue) \
    virtual Type getter() const {                        \
        return defaultValue;                             \
    }
// Makes the Attribute of a row.
#define TARVO_ATTRIBUTE_ROW(Type, getter, defaultValue) \
    {#getter, [](const auto& info) { return AttributeValue(info.getter()); }},
