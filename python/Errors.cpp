#include "python/Errors.hpp"

#include <Python.h>

#include <exception>
#include <string_view>
#include <utility>

#include "app/Warnings.hpp"
#include "python/Conversions.hpp"

namespace qzapp::python {

namespace py = pybind11;

namespace {

// To who calls save() or leaves a `with` block (see Draft._finish() in qzapp/_apps.py).
constexpr Py_ssize_t kFramesToCaller = 4;

const char* kindOf(const Error& error) {
    if (error.isPassing()) return "system";
    const auto* extension = dynamic_cast<const ExtensionError*>(&error);
    if (extension == nullptr) return "content";
    return extension->fault() == ExtensionError::Fault::NotInLowerCase ? "case" : "extension";
}

py::object noneIfEmpty(std::string_view text) {
    return text.empty() ? py::object(py::none()) : strOfBytes(text);
}

}  // namespace

py::object exceptionOf(const Error& error) {
    const Error::Pieces pieces = error.pieces();
    return py::module_::import("qzapp._errors")
        .attr("from_library")(kindOf(error), strOfBytes(error.subject() + ": " + error.text()),
                              strOfBytes(error.subject()), error.code().value(),
                              noneIfEmpty(pieces.place), strOfBytes(pieces.found),
                              noneIfEmpty(pieces.advice));
}

void translateErrors() {
    py::register_local_exception_translator([](std::exception_ptr thrown) {
        try {
            std::rethrow_exception(std::move(thrown));
        } catch (const Error& error) {
            try {
                const py::object made = exceptionOf(error);
                PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(made.ptr())), made.ptr());
            } catch (py::error_already_set& failure) {
                failure.restore();
            }
        }
    });
}

constinit thread_local Warnings* Warnings::current = nullptr;

void Warnings::install() {
    setWarnings([](const std::string& message) {
        if (current != nullptr) current->messages_.push_back(message);
    });
}

Warnings::Warnings() : outer_(std::exchange(current, this)) {}

Warnings::~Warnings() {
    current = outer_;
}

void Warnings::show() {
    constexpr std::string_view kPrefix = "warning: ";
    for (const std::string& message : std::exchange(messages_, {})) {
        const std::string_view text(message);
        const py::str shown =
            strOfBytes(text.starts_with(kPrefix) ? text.substr(kPrefix.size()) : text);
        const py::object category = py::module_::import("qzapp._errors").attr("AppWarning");
        py::module_::import("warnings").attr("warn")(shown, category, kFramesToCaller);
    }
}

void Warnings::showAfterSave() {
    try {
        show();
    } catch (py::error_already_set& e) {
        e.discard_as_unraisable("qzapp");
    }
}

}  // namespace qzapp::python
