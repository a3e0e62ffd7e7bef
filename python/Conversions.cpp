#include "python/Conversions.hpp"

#include <variant>

namespace qzapp::python {

namespace py = pybind11;

namespace {

template <class Object>
Object checked(PyObject* made) {
    if (made == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<Object>(made);
}

}  // namespace

ustring textFrom(py::handle str) {
    const auto bytes =
        checked<py::bytes>(PyUnicode_AsEncodedString(str.ptr(), "utf-16-le", "surrogatepass"));
    const auto units = static_cast<std::string_view>(bytes);
    ustring text(units.size() / sizeof(char16_t), u'\0');
    units.copy(reinterpret_cast<char*>(text.data()), units.size());
    return text;
}

py::str strOf(foundation::ustring_view text) {
    int byteOrder = -1;  // little-endian, and a byte-order mark is text
    return checked<py::str>(PyUnicode_DecodeUTF16(reinterpret_cast<const char*>(text.data()),
                                                  static_cast<Py_ssize_t>(2 * text.size()),
                                                  "surrogatepass", &byteOrder));
}

py::str strOfBytes(std::string_view bytes) {
    return checked<py::str>(PyUnicode_DecodeUTF8(
        bytes.data(), static_cast<Py_ssize_t>(bytes.size()), "surrogateescape"));
}

py::bytes bytesOf(std::span<const std::uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

FieldValue valueFrom(Field field, py::handle value) {
    if (!isList(field)) return textFrom(value);
    List items;
    for (const py::handle item : value)
        items.push_back(textFrom(item));
    return items;
}

py::object objectOf(const FieldValue& value) {
    if (const auto* text = std::get_if<ustring>(&value)) return strOf(*text);
    py::list items;
    for (const ustring& item : std::get<List>(value))
        items.append(strOf(item));
    return items;
}

Memory::Memory(py::handle object, Use use) {
    if (PyObject_GetBuffer(object.ptr(), &buffer_,
                           use == Use::Write ? PyBUF_WRITABLE : PyBUF_SIMPLE) != 0)
        throw py::error_already_set();
}

Memory::~Memory() {
    PyBuffer_Release(&buffer_);
}

}  // namespace qzapp::python
