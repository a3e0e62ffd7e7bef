#pragma once

#include <optional>
#include <string>
#include <variant>

namespace tarvo {

// nullopt: none.
using OptionalText = std::optional<std::string>;

using AttributeValue = std::variant<bool, int, OptionalText>;

// One attribute of a class or method description, for hosts that list them: the name of its getter
// and the value that the getter of `info` returns.
template <class Info>
struct Attribute {
    const char* name;
    AttributeValue (*valueOf)(const Info& info);
};

}  // namespace tarvo

// Turn a row (type, getter, default value) of an attribute list into the getter, which a description
// overrides to differ from the default, and into an Attribute.
#define TARVO_DECLARE_GETTER(Type, getter, defaultValue) \
    virtual Type getter() const {                        \
        return defaultValue;                             \
    }
#define TARVO_ATTRIBUTE_ROW(Type, getter, defaultValue) \
    {#getter, [](const auto& info) { return AttributeValue(info.getter()); }},
