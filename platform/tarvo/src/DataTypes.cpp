#include <tarvo/DataTypes.hpp>

#include <fl/i18n.hpp>
#include <hvarray/Inspection.hpp>
#include <messages/Catalog.hpp>
#include <tarvo/Errors.hpp>

#include <atomic>
#include <string>

namespace tarvo {

namespace {

using matrix::ArrayClass;

template <ArrayClass Class>
bool isOfClass(const hvArray_tag& value) {
    return matrix::classOf(value) == Class;
}

bool isAnything(const hvArray_tag&) {
    return true;
}

bool isText(const hvArray_tag& value) {
    const auto dimensions = matrix::dimensionsOf(value);
    const bool isRow = dimensions.size() == 2 && dimensions[0] == 1;
    return isOfClass<ArrayClass::Char>(value) && (isRow || matrix::elementCountOf(value) == 0);
}

constexpr DataType kBasicTypes[] = {
    {"any", "anything", isAnything},
    {"handle", "an object", isOfClass<ArrayClass::Object>},
    {"char", "a char array", isOfClass<ArrayClass::Char>},
    {"uint8", "a uint8 array", isOfClass<ArrayClass::Uint8>},
    {"cell", "a cell array", isOfClass<ArrayClass::Cell>},
    {"struct", "a struct array", isOfClass<ArrayClass::Struct>},
};

constexpr DataType kStringType{"TarvoFactoryString scalar", "a text", isText};

std::atomic<bool> stringTypesKnown{false};

}  // namespace

const DataType* findDataType(InternedString name) {
    if (name.str() == kStringType.name) return stringTypesKnown ? &kStringType : nullptr;
    for (const DataType& type : kBasicTypes) {
        if (name.str() == type.name) return &type;
    }
    return nullptr;
}

foundation::ustring describe(const hvArray_tag* value) {
    if (value == nullptr) return u"nothing";
    return fl::i18n::utf8_to_ustring("a " + matrix::shapeOf(*value) + " " +
                                     std::string(matrix::classNameOf(*value)));
}

namespace factory {

foundation::ustring extractString(const hvArray_tag& value) {
    if (!isText(value)) raise(messages::kNotAText, {describe(&value)});
    return foundation::ustring(matrix::textOf(value));
}

namespace detail {

void initStringDataTypes() {
    stringTypesKnown = true;
}

}  // namespace detail
}  // namespace factory
}  // namespace tarvo
