#include "tools/qzhost/StructText.hpp"

#include <fmt/format.h>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>
#include <hvarray/Inspection.hpp>

#include <algorithm>
#include <cstddef>

namespace qzhost {

namespace {

using matrix::ArrayClass;

bool isChar(const hvArray_tag* value) {
    return value != nullptr && matrix::classOf(*value) == ArrayClass::Char;
}

std::string displayElement(const hvArray_tag* value) {
    if (value == nullptr) return "[]";
    if (isChar(value)) return "'" + visible(matrix::textOf(*value)) + "'";
    return fmt::format("[{} {}]", matrix::shapeOf(*value), matrix::classNameOf(*value));
}

// A column of elements, "{'a'; 'b'}". A cell array inside shows only its shape.
std::string displayCell(const hvArray_tag& cell) {
    const std::size_t count = matrix::elementCountOf(cell);
    if (count == 0) return fmt::format("{{{} cell}}", matrix::shapeOf(cell));
    std::string text = "{";
    for (std::size_t i = 0; i < count; ++i) {
        if (i > 0) text += "; ";
        text += displayElement(matrix::cellOf(cell, i));
    }
    return text + "}";
}

std::string displayValue(const hvArray_tag* value) {
    const bool isCell = value != nullptr && matrix::classOf(*value) == ArrayClass::Cell;
    return isCell ? displayCell(*value) : displayElement(value);
}

nlohmann::ordered_json textToJson(const hvArray_tag* value) {
    if (value == nullptr) return nullptr;
    return fl::i18n::ustring_to_utf8(matrix::textOf(*value));
}

nlohmann::ordered_json valueToJson(const hvArray_tag* value) {
    if (value == nullptr || isChar(value)) return textToJson(value);
    auto texts = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < matrix::elementCountOf(*value); ++i)
        texts.push_back(textToJson(matrix::cellOf(*value, i)));
    return texts;
}

}  // namespace

std::string visible(std::u16string_view text) {
    return foundation::printable(fl::i18n::to_display(text));
}

std::string jsonText(const nlohmann::ordered_json& value) {
    return foundation::printableText(value.dump(2)) + "\n";
}

std::string displayStruct(const hvArray_tag& structure) {
    std::size_t width = 0;
    for (const std::string& name : matrix::fieldNamesOf(structure))
        width = std::max(width, name.size());
    std::string text = fmt::format("  {} struct with fields:\n\n", matrix::shapeOf(structure));
    for (const std::string& name : matrix::fieldNamesOf(structure)) {
        const hvArray_tag* const value = matrix::fieldOf(structure, 0, name);
        text += fmt::format("    {:>{}}: {}\n", name, width, displayValue(value));
    }
    return text;
}

nlohmann::ordered_json structToJson(const hvArray_tag& structure) {
    auto object = nlohmann::ordered_json::object();
    for (const std::string& name : matrix::fieldNamesOf(structure))
        object[name] = valueToJson(matrix::fieldOf(structure, 0, name));
    return object;
}

}  // namespace qzhost
