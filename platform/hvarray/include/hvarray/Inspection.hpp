#pragma once

#include <hvarray/Array.hpp>

#include <foundation/Export.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

// How hosts and tests look into an array. What is returned stays valid while the array is alive and
// unchanged. A question that the array's class has no answer to throws ArrayError.
namespace matrix {

enum class ArrayClass : std::uint8_t { Char, Uint8, Cell, Struct, Object };

PLATFORM_API ArrayClass classOf(const hvArray_tag& array) noexcept;
// "char", "uint8", "cell", "struct", or the class of an object.
PLATFORM_API std::string_view classNameOf(const hvArray_tag& array) noexcept;

// At least two.
PLATFORM_API Dimensions dimensionsOf(const hvArray_tag& array) noexcept;
// "2x1"
PLATFORM_API std::string shapeOf(const hvArray_tag& array);
PLATFORM_API std::size_t elementCountOf(const hvArray_tag& array) noexcept;

// In column order.
PLATFORM_API std::u16string_view textOf(const hvArray_tag& array);
PLATFORM_API std::span<const std::uint8_t> bytesOf(const hvArray_tag& array);

// Null where nothing has been stored.
PLATFORM_API const hvArray_tag* cellOf(const hvArray_tag& array, std::size_t index);
PLATFORM_API const hvArray_tag* fieldOf(const hvArray_tag& array, std::size_t index,
                                        std::string_view name);

// In the order in which they were created.
PLATFORM_API std::span<const std::string> fieldNamesOf(const hvArray_tag& array);

PLATFORM_API const std::shared_ptr<HostObject>& objectOf(const hvArray_tag& array);

// Number of owners.
PLATFORM_API std::size_t referenceCountOf(const hvArray_tag& array) noexcept;

}  // namespace matrix
