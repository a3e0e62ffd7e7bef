// The module qzapp._native, over which the package's Python code puts its classes. It is private to
// the package. Arguments are checked there; functions here take file names as bytes.

#include <Python.h>
#include <pybind11/pybind11.h>
#include <foundation/ProcessMark.hpp>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "app/AppContent.hpp"
#include "app/FieldValues.hpp"
#include "app/ScreenshotFormats.hpp"
#include "app/check/Checks.hpp"
#include "python/Conversions.hpp"
#include "python/Errors.hpp"
#include "python/File.hpp"
#include "python/ObjectLock.hpp"
#include "python/Released.hpp"
#include "python/Saving.hpp"
#include "python/Scan.hpp"

namespace qzapp::python {

namespace {

namespace py = pybind11;

using FilePointer = std::shared_ptr<File>;

// An extension that is loaded into several interpreters of a process would hand objects of one to
// another.
bool isMainInterpreter() {
    if (PyInterpreterState_Get() == PyInterpreterState_Main()) return true;
    PyErr_SetString(PyExc_ImportError,
                    "qzapp works in the main interpreter only, not in a subinterpreter; import it "
                    "there, or use a process of its own");
    return false;
}

// Python hands what the main interpreter has imported to others without asking PyInit__native()
// again, so the package calls this when it is imported. It is a function of Python's own interface,
// because pybind11 would wait for ever for the lock of the main interpreter.
extern "C" PyObject* requireMainInterpreter(PyObject*, PyObject*) {
    return isMainInterpreter() ? (Py_INCREF(Py_None), Py_None) : nullptr;
}

PyMethodDef functions[] = {
    {"require_main_interpreter", requireMainInterpreter, METH_NOARGS, nullptr},
    {nullptr, nullptr, 0, nullptr}};

py::tuple fieldNames() {
    py::list names;
    for (const Field field : allFields())
        names.append(qzapp::nameOf(field));
    return py::tuple(names);
}

py::tuple tupleOf(const appserialization::AppMetadata& metadata) {
    const auto fields = allFields();
    py::tuple values(fields.size());
    for (std::size_t i = 0; i < fields.size(); ++i)
        values[i] = objectOf(valueOf(metadata, fields[i]));
    return values;
}

py::object pairOf(const appserialization::Screenshot& screenshot) {
    const auto& [format, bytes] = screenshot;
    if (format.empty() && bytes.empty()) return py::none();
    return py::make_tuple(strOf(format), bytesOf(bytes));
}

py::bytes codeOf(const FilePointer& file) {
    return released([&] { return readCode(file->name()); });
}

py::list partsOf(const FilePointer& file) {
    py::list parts;
    for (const PartFacts& part : released([&] { return file->parts(); })) {
        parts.append(py::make_tuple(strOf(part.name), strOf(part.contentType), part.size,
                                    part.compressedSize));
    }
    return parts;
}

py::list findingsOf(const FilePointer& file) {
    py::list findings;
    for (const Finding& finding : released([&] { return checkFile(file->name()).sorted(); })) {
        findings.append(py::make_tuple(finding.rule->id, qzapp::nameOf(finding.rule->severity),
                                       strOfBytes(finding.part), strOfBytes(finding.text),
                                       strOfBytes(finding.fix), finding.count));
    }
    return findings;
}

std::size_t readInto(Stream& stream, py::handle buffer) {
    const Memory memory(buffer, Memory::Use::Write);
    return released([&] { return stream.read(memory.bytes()); });
}

void append(MemoryFile& to, py::handle buffer) {
    const Memory memory(buffer, Memory::Use::Read);
    released([&] { to.append(memory.bytes()); });
}

py::list nextOf(Scan& scan) {
    std::optional<py::error_already_set> raised;
    const auto mayGoOn = [&] {
        const Locked held;
        if (!raised && isInterrupted()) raised.emplace();
        return !raised;
    };
    const auto some = released([&] { return scan.next(mayGoOn); });
    if (raised) throw std::move(*raised);
    py::list items;
    for (const Scanned& each : some) {
        items.append(
            py::make_tuple(strOfBytes(each.name),
                           each.form ? py::object(py::str(qzapp::nameOf(*each.form))) : py::none(),
                           each.metadata ? py::object(tupleOf(*each.metadata)) : py::none(),
                           each.error ? exceptionOf(*each.error) : py::none()));
    }
    return items;
}

void declareFiles(py::module_& module) {
    py::class_<Stream, std::shared_ptr<Stream>>(module, "Stream").def("readinto", readInto);
    py::class_<File, FilePointer>(module, "File")
        .def_static(
            "at", [](const std::string& name) { return released([&] { return File::at(name); }); })
        .def("form", [](const FilePointer& file) { return qzapp::nameOf(file->form()); })
        .def("require_app", [](const FilePointer& file) { released([&] { file->requireApp(); }); })
        .def("metadata",
             [](const FilePointer& file) {
                 return tupleOf(released([&] { return file->metadata(); }));
             })
        .def("code", codeOf)
        .def("screenshot",
             [](const FilePointer& file) {
                 return pairOf(released([&] { return file->screenshot(); }));
             })
        .def("as_image",
             [](const FilePointer& file) {
                 return pairOf(released([&] { return readImage(file->name()); }));
             })
        .def("model",
             [](const FilePointer& file) { return released([&] { return file->model(); }); })
        .def("model_size",
             [](const FilePointer& file) { return released([&] { return file->modelSize(); }); })
        .def("parts", partsOf)
        .def("part",
             [](const FilePointer& file, const py::str& name) {
                 const ustring text = textFrom(name);
                 return released([&] { return file->part(text); });
             })
        .def("findings", findingsOf);
    py::class_<MemoryFile>(module, "MemoryFile")
        .def(py::init<>())
        .def("append", append)
        .def("app", [](MemoryFile& file) { return released([&] { return file.app(); }); })
        .def("content", [](MemoryFile& file) { return released([&] { return file.content(); }); });
}

Given given(const py::dict& fields, const py::object& code, const FilePointer& model,
            const py::object& screenshot) {
    return {fields, code, model, screenshot};
}

void declareSaving(py::module_& module) {
    py::class_<foundation::ProcessMark>(module, "ProcessMark")
        .def(py::init<>())
        .def("is_of_this_process", &foundation::ProcessMark::isOfThisProcess);
    module.def("require_packaged", requirePackaged);
    module.def("require_free",
               [](const std::string& shown, const std::string& absolute, bool overwrite) {
                   requireFree({shown, absolute}, overwrite);
               });
    module.def("create",
               [](const std::string& shown, const std::string& absolute, const py::dict& fields,
                  const py::object& code, const FilePointer& model, const py::object& screenshot,
                  bool overwrite) {
                   create({shown, absolute}, given(fields, code, model, screenshot), overwrite);
               });
    module.def("edit",
               [](const std::string& shown, const std::string& absolute, const FilePointer& opened,
                  const py::dict& fields, const py::object& code, const FilePointer& model,
                  const py::object& screenshot, bool removeScreenshot, bool dropSignature) {
                   return edit({shown, absolute}, opened, given(fields, code, model, screenshot),
                               removeScreenshot, dropSignature);
               });
    module.def("copy_to",
               [](Stream& stream, const std::string& shown, const std::string& absolute) {
                   copyTo(stream, {shown, absolute});
               });
}

void declareScan(py::module_& module) {
    py::class_<Scan>(module, "Scan")
        .def(py::init(
            [](const std::string& shown, const std::string& absolute, std::size_t threads) {
                return released([&] { return std::make_unique<Scan>(shown, absolute, threads); });
            }))
        .def("next", nextOf);
}

void declare(py::module_& module) {
    if (PyModule_AddFunctions(module.ptr(), functions) != 0) throw py::error_already_set();
    module.attr("FIELDS") = fieldNames();
    translateErrors();
    ObjectLock::install();
    Warnings::install();
    declareFiles(module);
    declareSaving(module);
    declareScan(module);
}

}  // namespace

}  // namespace qzapp::python

// What PYBIND11_MODULE defines, but with a check that comes before anything of pybind11 is made:
// its state is of the first interpreter that asks for it.
extern "C" PYBIND11_EXPORT PyObject* PyInit__native();
extern "C" PYBIND11_EXPORT PyObject* PyInit__native() {
    if (!qzapp::python::isMainInterpreter()) return nullptr;
    PYBIND11_ENSURE_INTERNALS_READY
    static pybind11::module_::module_def definition;
    auto module = pybind11::module_::create_extension_module("_native", nullptr, &definition);
    try {
        qzapp::python::declare(module);
        return module.ptr();
    }
    PYBIND11_CATCH_INIT_EXCEPTIONS
}
