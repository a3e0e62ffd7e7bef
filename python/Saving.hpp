#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <string>

#include "python/File.hpp"

namespace qzapp::python {

// What a program has set: `fields` by the names of the format, the others None unless they are set.
// `screenshot` is a pair of format and bytes.
struct Given {
    pybind11::dict fields;
    pybind11::object code;
    std::shared_ptr<File> model;
    pybind11::object screenshot;
};

// The name of the file to save: as the program gave it, and with the working directory of that
// moment.
struct SaveName {
    std::string shown, absolute;
};

// Throws FileExistsError's Error if the file is there and `overwrite` is false; the next two do it,
// too.
void requireFree(const SaveName& name, bool overwrite);
void create(const SaveName& name, const Given& given, bool overwrite);

// Returns notes for the user; None if the file is as asked already, and was left alone.
pybind11::object edit(const SaveName& name, const std::shared_ptr<File>& opened, const Given& given,
                      bool removeScreenshot, bool dropSignature);

// Writes a stream to a file, whole or not at all.
void copyTo(Stream& stream, const SaveName& name);

// Throws unless `file` is a packaged app, the only one that can be changed.
void requirePackaged(const std::string& shown);

}  // namespace qzapp::python
