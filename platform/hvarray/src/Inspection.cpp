#include <hvarray/Inspection.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <variant>

#include "platform/hvarray/src/ArrayData.hpp"

namespace matrix {

namespace {

constexpr std::array<std::string_view, std::variant_size_v<Payload>> kClassNames = {
    "char", "uint8", "cell", "struct", "object"};

std::string quoted(std::string_view text) {
    return '"' + std::string(text) + '"';
}

void checkIndex(const hvArray_tag& array, std::size_t index) {
    if (index < array.shape.elementCount()) return;
    throw ArrayError("index " + std::to_string(index) + " is outside a " + shapeOf(array) + " " +
                     std::string(classNameOf(array)) + " array");
}

}  // namespace

void throwWrongClass(const hvArray_tag& array, ArrayClass expected) {
    const auto expectedName = kClassNames[static_cast<std::size_t>(expected)];
    const char* const article = expected == ArrayClass::Object ? "an " : "a ";
    throw ArrayError("expected " + (article + std::string(expectedName)) + " array, got a " +
                     shapeOf(array) + " " + std::string(classNameOf(array)) + " array");
}

std::size_t cellPosition(const hvArray_tag& cell, std::size_t index) {
    payloadOf<ArrayClass::Cell>(cell);
    checkIndex(cell, index);
    return index;
}

std::size_t fieldPosition(const hvArray_tag& structure, std::size_t index, std::string_view name) {
    const auto& names = payloadOf<ArrayClass::Struct>(structure).names;
    checkIndex(structure, index);
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) throw ArrayError("the struct has no field " + quoted(name));
    return index * names.size() + static_cast<std::size_t>(found - names.begin());
}

ArrayClass classOf(const hvArray_tag& array) noexcept {
    return static_cast<ArrayClass>(array.payload.index());
}

std::string_view classNameOf(const hvArray_tag& array) noexcept {
    if (const auto* object = std::get_if<std::shared_ptr<HostObject>>(&array.payload)) {
        return (*object)->className();
    }
    return kClassNames[array.payload.index()];
}

Dimensions dimensionsOf(const hvArray_tag& array) noexcept {
    return array.shape.dimensions();
}

std::string shapeOf(const hvArray_tag& array) {
    return array.shape.toString();
}

std::size_t elementCountOf(const hvArray_tag& array) noexcept {
    return array.shape.elementCount();
}

std::u16string_view textOf(const hvArray_tag& array) {
    return payloadOf<ArrayClass::Char>(array);
}

std::span<const std::uint8_t> bytesOf(const hvArray_tag& array) {
    return payloadOf<ArrayClass::Uint8>(array);
}

const hvArray_tag* cellOf(const hvArray_tag& array, std::size_t index) {
    const std::size_t position = cellPosition(array, index);
    return payloadOf<ArrayClass::Cell>(array).elements[position].get();
}

const hvArray_tag* fieldOf(const hvArray_tag& array, std::size_t index, std::string_view name) {
    const std::size_t position = fieldPosition(array, index, name);
    return payloadOf<ArrayClass::Struct>(array).values[position].get();
}

std::span<const std::string> fieldNamesOf(const hvArray_tag& array) {
    return payloadOf<ArrayClass::Struct>(array).names;
}

const std::shared_ptr<HostObject>& objectOf(const hvArray_tag& array) {
    return payloadOf<ArrayClass::Object>(array);
}

std::size_t referenceCountOf(const hvArray_tag& array) noexcept {
    return array.references.load(std::memory_order_relaxed);
}

}  // namespace matrix
