#pragma once

#include <Python.h>
#include <pybind11/pybind11.h>
#include <foundation/ustring.hpp>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "app/FieldValues.hpp"

// Between Python's values and the library's. All of this needs the interpreter's lock.
namespace qzapp::python {

// A str may hold what is not Unicode (a lone surrogate); the library then says where.
ustring textFrom(pybind11::handle str);
pybind11::str strOf(foundation::ustring_view text);
// UTF-8 of a message or a file's name, in which other bytes become what os.fsencode() takes back.
pybind11::str strOfBytes(std::string_view bytes);
pybind11::bytes bytesOf(std::span<const std::uint8_t> bytes);

// A str, or a list of str.
FieldValue valueFrom(Field field, pybind11::handle value);
pybind11::object objectOf(const FieldValue& value);

// The memory of an object such as bytes or bytearray, which the object keeps in its place as long
// as this exists. Throws what Python raises if it has none, or none that can be written to.
class Memory {
public:
    enum class Use { Read, Write };

    Memory(pybind11::handle object, Use use);
    ~Memory();
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;

    std::span<std::byte> bytes() const noexcept {
        return {static_cast<std::byte*>(buffer_.buf), static_cast<std::size_t>(buffer_.len)};
    }

private:
    Py_buffer buffer_{};
};

}  // namespace qzapp::python
