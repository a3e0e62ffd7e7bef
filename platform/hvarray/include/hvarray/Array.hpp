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

// A value of the host language. Arrays are made by the create functions below, which give the caller
// one reference; every reference ends in destroyArray() or in being handed over to a cell or a
// struct. An array may be read from several threads; it is changed only while it has one owner.
struct hvArray_tag;

namespace matrix {

// An operation that an array does not allow: another class, an index or a field that it does not
// have, a shape that no array can have. The message says what was asked and what there is.
class PLATFORM_API ArrayError : public std::runtime_error {
public:
    explicit ArrayError(const std::string& message);
    ~ArrayError() override;
};

// Sizes along each dimension. {n} stands for n-by-1 and an empty list for 0-by-0.
using Dimensions = std::span<const std::size_t>;

// What the class system keeps behind an object array. The last array that refers to it destroys it.
class PLATFORM_API HostObject {
public:
    HostObject(const HostObject&) = delete;
    HostObject& operator=(const HostObject&) = delete;
    virtual ~HostObject();
    // The full name of the object's class, which is the array's class too.
    virtual std::string_view className() const noexcept = 0;

protected:
    HostObject();
};

// Gives up one reference to `array`, and frees it if that was the last one. Null is ignored.
PLATFORM_API void destroyArray(hvArray_tag* array) noexcept;

// A 1-by-n row; n may be 0. hvCreateString_UTF16() makes the row of characters.
PLATFORM_API hvArray_tag* createUint8(std::span<const std::uint8_t> bytes);

// Arrays of any shape, elements in column order. Throws ArrayError unless there are as many elements
// as the dimensions say.
PLATFORM_API hvArray_tag* createChar(Dimensions dimensions, std::u16string_view text);
PLATFORM_API hvArray_tag* createUint8(Dimensions dimensions, std::span<const std::uint8_t> bytes);

// A 1-by-1 object.
PLATFORM_API hvArray_tag* createObject(std::shared_ptr<HostObject> object);

namespace detail {

// A cell array whose elements are empty.
PLATFORM_API hvArray_tag* do_create_cell(Dimensions dimensions);

// A struct array whose fields are empty. Throws ArrayError when a name is empty or comes twice.
PLATFORM_API hvArray_tag* do_create_struct(Dimensions dimensions,
                                           std::span<const char* const> fieldNames);

namespace noninlined::hv_array_api {

// A 1-by-n character row of the text up to its terminating zero.
PLATFORM_API hvArray_tag* hvCreateString_UTF16(const char16_t* text);
// A 1-by-n character row of the n code units given, which may be zeros.
PLATFORM_API hvArray_tag* hvCreateString_UTF16(std::u16string_view text);

// The setters store `value`, which may be null to make the element empty, and take over the caller's
// reference to it; what stood there before is released. They throw ArrayError, and leave both arrays
// and the reference as they were, when there is no such element or field, when the target is of
// another class or shared with another owner, and when it would be stored in itself.
//
// An array whose only reference has been handed over belongs to the array that took it, and must not
// be changed through an old pointer any more. Whoever does could store the owner in it, so that each
// contains the other: this is not found out, since that would take a walk through the whole value at
// each call, and such arrays are never freed.
PLATFORM_API void hvSetCell(hvArray_tag* cell, std::size_t index, hvArray_tag* value);
PLATFORM_API void hvSetField(hvArray_tag* structure, std::size_t index, const char* name,
                             hvArray_tag* value);

}  // namespace noninlined::hv_array_api
}  // namespace detail

// Owns one reference; copies share the array.
using ArrayPtr = boost::intrusive_ptr<hvArray_tag>;

// Takes over the reference that a create function has given.
inline ArrayPtr adopt(hvArray_tag* array) noexcept {
    return ArrayPtr(array, /*add_ref=*/false);
}

// Number of arrays in the process that have not been freed.
PLATFORM_API std::size_t liveArrayCount() noexcept;

}  // namespace matrix

PLATFORM_API void intrusive_ptr_add_ref(hvArray_tag* array) noexcept;
PLATFORM_API void intrusive_ptr_release(hvArray_tag* array) noexcept;
