#include <hvarray/Array.hpp>

#include <hvarray/Inspection.hpp>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <set>
#include <utility>
#include <variant>
#include <vector>

#include "platform/hvarray/src/ArrayData.hpp"

namespace matrix {

namespace {

std::atomic<std::size_t> liveArrays{0};

// More elements than any container can hold. A shape with more is an ArrayError; one with fewer
// that do not fit into memory is a std::bad_alloc.
constexpr std::size_t kMaxElements = PTRDIFF_MAX / sizeof(ArrayPtr);

std::size_t product(std::size_t left, std::size_t right) {
    if (right != 0 && left > kMaxElements / right) {
        throw ArrayError("an array cannot have " + std::to_string(left) + " times " +
                         std::to_string(right) + " elements");
    }
    return left * right;
}

std::vector<std::size_t> complete(Dimensions dimensions) {
    std::vector<std::size_t> completed(std::max<std::size_t>(dimensions.size(), 2),
                                       dimensions.empty() ? 0 : 1);
    std::copy(dimensions.begin(), dimensions.end(), completed.begin());
    return completed;
}

std::size_t countElements(Dimensions dimensions) {
    // A zero anywhere makes the array empty, even if the other sizes overflow.
    if (std::find(dimensions.begin(), dimensions.end(), 0u) != dimensions.end()) return 0;
    std::size_t count = 1;
    for (const std::size_t size : dimensions)
        count = product(count, size);
    return count;
}

hvArray_tag* create(Shape shape, Payload payload) {
    return std::make_unique<hvArray_tag>(std::move(shape), std::move(payload)).release();
}

template <class Elements>
hvArray_tag* createRow(Elements elements) {
    const std::size_t dimensions[] = {1, elements.size()};
    return create(Shape(dimensions), std::move(elements));
}

template <class Elements>
hvArray_tag* createFilled(Dimensions dimensions, Elements elements) {
    Shape shape(dimensions);
    if (shape.elementCount() != elements.size()) {
        throw ArrayError(std::to_string(elements.size()) + " elements do not fill a " +
                         shape.toString() + " array");
    }
    return create(std::move(shape), std::move(elements));
}

std::vector<std::string> checkedNames(std::span<const char* const> fieldNames) {
    std::vector<std::string> names;
    std::set<std::string_view> seen;
    for (const char* name : fieldNames) {
        if (name == nullptr || *name == '\0') throw ArrayError("a struct field needs a name");
        if (!seen.insert(name).second) {
            throw ArrayError("the struct field \"" + std::string(name) + "\" comes twice");
        }
        names.emplace_back(name);
    }
    return names;
}

bool dropReference(hvArray_tag& array) noexcept {
    return array.references.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

std::span<ArrayPtr> childrenOf(hvArray_tag& array) noexcept {
    if (auto* cells = std::get_if<Cells>(&array.payload)) return cells->elements;
    if (auto* fields = std::get_if<Fields>(&array.payload)) return fields->values;
    return {};
}

// Arrays can nest to any depth, so this puts those that lost their last reference into a list
// instead of calling itself.
void freeWithChildren(hvArray_tag* dead) noexcept {
    while (dead != nullptr) {
        const std::unique_ptr<hvArray_tag> array(dead);
        dead = array->nextDead;
        for (ArrayPtr& child : childrenOf(*array)) {
            hvArray_tag* const orphan = child.detach();
            if (orphan == nullptr || !dropReference(*orphan)) continue;
            orphan->nextDead = dead;
            dead = orphan;
        }
    }
}

// Refuses to change a shared array, because its other owners would see the change. An array with
// one reference, which the caller holds, is not part of any other array.
void checkChangeable(const hvArray_tag& target, const hvArray_tag* value) {
    if (value == &target) throw ArrayError("an array cannot contain itself");
    if (referenceCountOf(target) == 1) return;
    throw ArrayError("a " + shapeOf(target) + " " + std::string(classNameOf(target)) +
                     " array with several owners cannot be changed");
}

hvArray_tag& required(hvArray_tag* array) {
    if (array == nullptr) throw ArrayError("expected an array, got none");
    return *array;
}

std::string_view required(const char* name) {
    if (name == nullptr) throw ArrayError("expected the name of a struct field, got none");
    return name;
}

void replace(ArrayPtr& place, hvArray_tag* value) noexcept {
    place = adopt(value);
}

}  // namespace

ArrayError::ArrayError(const std::string& message) : std::runtime_error(message) {}
ArrayError::~ArrayError() = default;

HostObject::HostObject() = default;
HostObject::~HostObject() = default;

Shape::Shape(Dimensions dimensions)
    : dimensions_(complete(dimensions)), elementCount_(countElements(dimensions_)) {}

std::string Shape::toString() const {
    std::string text;
    for (const std::size_t size : dimensions_) {
        if (!text.empty()) text += 'x';
        text += std::to_string(size);
    }
    return text;
}

void destroyArray(hvArray_tag* array) noexcept {
    if (array != nullptr && dropReference(*array)) freeWithChildren(array);
}

hvArray_tag* createUint8(std::span<const std::uint8_t> bytes) {
    return createRow(Bytes(bytes.begin(), bytes.end()));
}

hvArray_tag* createChar(Dimensions dimensions, std::u16string_view text) {
    return createFilled(dimensions, Text(text));
}

hvArray_tag* createUint8(Dimensions dimensions, std::span<const std::uint8_t> bytes) {
    return createFilled(dimensions, Bytes(bytes.begin(), bytes.end()));
}

hvArray_tag* createObject(std::shared_ptr<HostObject> object) {
    if (object == nullptr) throw ArrayError("expected an object, got none");
    const std::size_t dimensions[] = {1, 1};
    return create(Shape(dimensions), std::move(object));
}

namespace detail {

hvArray_tag* do_create_cell(Dimensions dimensions) {
    Shape shape(dimensions);
    Cells cells{std::vector<ArrayPtr>(shape.elementCount())};
    return create(std::move(shape), std::move(cells));
}

hvArray_tag* do_create_struct(Dimensions dimensions, std::span<const char* const> fieldNames) {
    Shape shape(dimensions);
    Fields fields{checkedNames(fieldNames), {}};
    fields.values.resize(product(shape.elementCount(), fields.names.size()));
    return create(std::move(shape), std::move(fields));
}

namespace noninlined::hv_array_api {

hvArray_tag* hvCreateString_UTF16(const char16_t* text) {
    if (text == nullptr) throw ArrayError("expected a text, got none");
    return hvCreateString_UTF16(std::u16string_view(text));
}

hvArray_tag* hvCreateString_UTF16(std::u16string_view text) {
    return createRow(Text(text));
}

void hvSetCell(hvArray_tag* cell, std::size_t index, hvArray_tag* value) {
    hvArray_tag& target = required(cell);
    const std::size_t position = cellPosition(target, index);
    checkChangeable(target, value);
    replace(payloadOf<ArrayClass::Cell>(target).elements[position], value);
}

void hvSetField(hvArray_tag* structure, std::size_t index, const char* name, hvArray_tag* value) {
    hvArray_tag& target = required(structure);
    const std::size_t position = fieldPosition(target, index, required(name));
    checkChangeable(target, value);
    replace(payloadOf<ArrayClass::Struct>(target).values[position], value);
}

}  // namespace noninlined::hv_array_api
}  // namespace detail

std::size_t liveArrayCount() noexcept {
    return liveArrays.load(std::memory_order_relaxed);
}

}  // namespace matrix

hvArray_tag::hvArray_tag(matrix::Shape shapeOfArray, matrix::Payload payloadOfArray) noexcept
    : shape(std::move(shapeOfArray)), payload(std::move(payloadOfArray)) {
    matrix::liveArrays.fetch_add(1, std::memory_order_relaxed);
}

hvArray_tag::~hvArray_tag() {
    matrix::liveArrays.fetch_sub(1, std::memory_order_relaxed);
}

void intrusive_ptr_add_ref(hvArray_tag* array) noexcept {
    array->references.fetch_add(1, std::memory_order_relaxed);
}

void intrusive_ptr_release(hvArray_tag* array) noexcept {
    matrix::destroyArray(array);
}
