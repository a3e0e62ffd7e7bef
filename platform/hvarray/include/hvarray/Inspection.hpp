#pragma once

#include <hvarray/Array.hpp>

#include <foundation/Export.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

// How hosts and tests look into an array. Views, spans and pointers that are returned stay valid as
// long as the array is alive and unchanged; none of them is a new reference. A function that needs
// an array of another class, or an element or field that the array lacks, throws ArrayError.
// Elements are in column order, and indices count from 0.
namespace matrix {

enum class ArrayClass : std::uint8_t { Char, Uint8, Cell, Struct, Object };

PLATFORM_API ArrayClass classOf(const hvArray_tag& array) noexcept;
// "char", "uint8", "cell", "struct", or the class of an object.
PLATFORM_API std::string_view classNameOf(const hvArray_tag& array) noexcept;

// The sizes along each dimension, of which there are at least two.
PLATFORM_API Dimensions dimensionsOf(const hvArray_tag& array) noexcept;
// The dimensions for messages: "2x1".
PLATFORM_API std::string shapeOf(const hvArray_tag& array);
PLATFORM_API std::size_t elementCountOf(const hvArray_tag& array) noexcept;

// The elements of a char array; UTF-16 code units, not necessarily valid UTF-16.
PLATFORM_API std::u16string_view textOf(const hvArray_tag& array);
// The elements of a uint8 array.
PLATFORM_API std::span<const std::uint8_t> bytesOf(const hvArray_tag& array);

// What an element of a cell array, or a field of an element of a struct array, holds. Null if it is
// empty.
PLATFORM_API const hvArray_tag* cellOf(const hvArray_tag& array, std::size_t index);
PLATFORM_API const hvArray_tag* fieldOf(const hvArray_tag& array, std::size_t index,
                                        std::string_view name);

// The field names of a struct array, in the order in which it was created with them.
PLATFORM_API std::span<const std::string> fieldNamesOf(const hvArray_tag& array);

// The object that an object array refers to; never null.
PLATFORM_API const std::shared_ptr<HostObject>& objectOf(const hvArray_tag& array);

// Only 1 is certain, for the owner of that one reference: others may change any higher count at
// once.
PLATFORM_API std::size_t referenceCountOf(const hvArray_tag& array) noexcept;

}  // namespace matrix
