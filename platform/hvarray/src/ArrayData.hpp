#pragma once

#include <hvarray/Array.hpp>
#include <hvarray/Inspection.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace matrix {

// A shape that an array can have: two dimensions or more, and a number of elements that fits.
class Shape {
public:
    // Throws ArrayError when the number of elements overflows.
    explicit Shape(Dimensions dimensions);

    Dimensions dimensions() const noexcept { return dimensions_; }
    std::size_t elementCount() const noexcept { return elementCount_; }
    // "2x1"
    std::string toString() const;

private:
    std::vector<std::size_t> dimensions_;
    std::size_t elementCount_;
};

using Text = std::u16string;
using Bytes = std::vector<std::uint8_t>;

struct Cells {
    std::vector<ArrayPtr> elements;
};

// The values of one element stand together, in the order of the names.
struct Fields {
    std::vector<std::string> names;
    std::vector<ArrayPtr> values;
};

// Its alternatives stand in the order of ArrayClass.
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
    // Links the arrays that wait to be freed.
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

// Positions, checked, of a cell and of a field's value.
std::size_t cellPosition(const hvArray_tag& cell, std::size_t index);
std::size_t fieldPosition(const hvArray_tag& structure, std::size_t index, std::string_view name);

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
