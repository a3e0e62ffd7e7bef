#pragma once

#include <foundation/Export.hpp>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

// A value of the host language: an array of characters, bytes, cells or structs, or an object.
//
// Arrays are reference-counted. The create functions below give the caller one reference, which the
// caller either gives up with destroyArray() or hands over to a cell or a struct; adopt() makes an
// ArrayPtr of it, which does this by itself. Several threads may read an array and take or give up
// references. An array is changed only while it has one reference, by the thread that holds it.
struct hvArray_tag;

namespace matrix {

// Thrown for an operation that an array does not allow: it has another class, or lacks the index or
// field, or no array can have the shape. The message says what was asked for and what there is. The
// arrays are as they were before.
class PLATFORM_API ArrayError : public std::runtime_error {
public:
    explicit ArrayError(const std::string& message);
    ~ArrayError() override;
};

// Sizes along each dimension. {n} stands for n-by-1 and an empty list for 0-by-0.
using Dimensions = std::span<const std::size_t>;

// Base of the objects to which object arrays refer; the class system derives from it. Arrays share
// the ownership of their object, so it is usually destroyed with the last array that refers to it,
// in the thread that gives up that array.
class PLATFORM_API HostObject {
public:
    HostObject(const HostObject&) = delete;
    HostObject& operator=(const HostObject&) = delete;
    virtual ~HostObject();
    // The full name of the object's class, which classNameOf() gives for the array. Valid as long
    // as the object.
    virtual std::string_view className() const noexcept = 0;

protected:
    HostObject();
};

// Gives up one reference to `array`, and frees it if that was the last one. Arrays that it contains
// lose their references, too, however deeply they nest. Null is ignored.
PLATFORM_API void destroyArray(hvArray_tag* array) noexcept;

// The create functions copy what they are given, and throw std::bad_alloc if memory runs out.

// A 1-by-n row; n may be 0. hvCreateString_UTF16() makes a row of characters.
PLATFORM_API hvArray_tag* createUint8(std::span<const std::uint8_t> bytes);

// Arrays of any shape. The elements are in column order. Throws ArrayError unless there are as many
// elements as the dimensions say.
PLATFORM_API hvArray_tag* createChar(Dimensions dimensions, std::u16string_view text);
PLATFORM_API hvArray_tag* createUint8(Dimensions dimensions, std::span<const std::uint8_t> bytes);

// A 1-by-1 object array, which shares `object`. Throws ArrayError if that is null.
PLATFORM_API hvArray_tag* createObject(std::shared_ptr<HostObject> object);

namespace detail {

// A cell array whose elements are empty.
PLATFORM_API hvArray_tag* do_create_cell(Dimensions dimensions);

// A struct array whose fields are empty. Throws ArrayError if a name is null or empty, or occurs
// twice.
PLATFORM_API hvArray_tag* do_create_struct(Dimensions dimensions,
                                           std::span<const char* const> fieldNames);

namespace noninlined::hv_array_api {

// A 1-by-n character row of the text up to its terminating zero. Throws ArrayError for null.
PLATFORM_API hvArray_tag* hvCreateString_UTF16(const char16_t* text);
// A 1-by-n character row of the n code units given, which may be zeros.
PLATFORM_API hvArray_tag* hvCreateString_UTF16(std::u16string_view text);

// These two functions store `value` in an element of a cell array or a field of a struct array, and
// take over the caller's reference to it. A null `value` makes the place empty. The array that was
// there before is released. `index` counts from 0, in column order.
//
// They throw ArrayError if the target is null, is of another class, has no such element or field,
// has several references, or is `value` itself. Then both arrays are unchanged, and the caller
// still owns the reference to `value`.
//
// An array whose only reference has been handed over belongs to the array that took it. Do not
// change it through an old pointer: it could be made to contain its owner, and the two would never
// be freed. Detecting that would mean searching the whole value at each call.
PLATFORM_API void hvSetCell(hvArray_tag* cell, std::size_t index, hvArray_tag* value);
PLATFORM_API void hvSetField(hvArray_tag* structure, std::size_t index, const char* name,
                             hvArray_tag* value);

}  // namespace noninlined::hv_array_api
}  // namespace detail

// Owns one reference to an array; each copy owns another.
using ArrayPtr = boost::intrusive_ptr<hvArray_tag>;

// Takes over the reference that a create function has given.
inline ArrayPtr adopt(hvArray_tag* array) noexcept {
    return ArrayPtr(array, /*add_ref=*/false);
}

// Number of arrays in the process that have not been freed; for tests of leaks.
PLATFORM_API std::size_t liveArrayCount() noexcept;

}  // namespace matrix

// ArrayPtr finds these two by their names.
PLATFORM_API void intrusive_ptr_add_ref(hvArray_tag* array) noexcept;
PLATFORM_API void intrusive_ptr_release(hvArray_tag* array) noexcept;
