#pragma once

#include <hvarray/Array.hpp>
#include <hvarray/Inspection.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace matrix {

// The dimensions of an array, completed to at least two, and their product.
class Shape {
public:
    // Throws ArrayError if no container could hold so many elements.
    explicit Shape(Dimensions dimensions);

    Dimensions dimensions() const noexcept { return dimensions_; }
    std::size_t elementCount() const noexcept { return elementCount_; }
    // For messages: "2x1".
    std::string toString() const;

private:
    std::vector<std::size_t> dimensions_;
    std::size_t elementCount_;
};

// What an array of each class holds, in column order.
using Text = std::u16string;
using Bytes = std::vector<std::uint8_t>;

struct Cells {
    std::vector<ArrayPtr> elements;  // null for an empty element
};

// `values` holds the fields of the first element in the order of `names`, then those of the second,
// and so on. Empty fields are null.
struct Fields {
    std::vector<std::string> names;
    std::vector<ArrayPtr> values;
};

// The alternatives are in the order of ArrayClass, so that index() is the array's class.
using Payload = std::variant<Text, Bytes, Cells, Fields, std::shared_ptr<HostObject>>;

template <ArrayClass Class>
using PayloadOf = std::variant_alternative_t<static_cast<std::size_t>(Class), Payload>;
static_assert(std::is_same_v<PayloadOf<ArrayClass::Uint8>, Bytes>);
static_assert(std::is_same_v<PayloadOf<ArrayClass::Struct>, Fields>);
static_assert(static_cast<std::size_t>(ArrayClass::Object) == std::variant_size_v<Payload> - 1);

}  // namespace matrix

struct hvArray_tag {
    hvArray_tag(matrix::Shape shapeOfArray, matrix::Payload payloadOfArray) noexcept;
    hvArray_tag(const hvArray_tag&) = delete;
    hvArray_tag& operator=(const hvArray_tag&) = delete;
    ~hvArray_tag();

    std::atomic<std::size_t> references{1};
    // The next one in the list of arrays to free; used only after the last reference is gone.
    hvArray_tag* nextDead = nullptr;
    matrix::Shape shape;
    matrix::Payload payload;
};

namespace matrix {

// The payload of an array that must be of class `Class`. Throws ArrayError otherwise.
template <ArrayClass Class>
PayloadOf<Class>& payloadOf(hvArray_tag& array);
template <ArrayClass Class>
const PayloadOf<Class>& payloadOf(const hvArray_tag& array);

// The position of an element in Cells::elements. Throws ArrayError if `cell` is of another class or
// has no such element.
std::size_t cellPosition(const hvArray_tag& cell, std::size_t index);
// The position of a field in Fields::values. Throws ArrayError if `structure` is of another class
// or has no such element or field.
std::size_t fieldPosition(const hvArray_tag& structure, std::size_t index, std::string_view name);

// Throws the ArrayError of payloadOf().
[[noreturn]] void throwWrongClass(const hvArray_tag& array, ArrayClass expected);

template <ArrayClass Class>
const PayloadOf<Class>& payloadOf(const hvArray_tag& array) {
    if (classOf(array) != Class) throwWrongClass(array, Class);
    return std::get<static_cast<std::size_t>(Class)>(array.payload);
}

template <ArrayClass Class>
PayloadOf<Class>& payloadOf(hvArray_tag& array) {
    return const_cast<PayloadOf<Class>&>(payloadOf<Class>(std::as_const(array)));
}

}  // namespace matrix
