#pragma once

#include <pybind11/pybind11.h>

#include <string>
#include <vector>

#include "app/Error.hpp"

namespace qzapp::python {

// The exception that stands for an error (see qzapp/_errors.py).
pybind11::object exceptionOf(const Error& error);

// Makes such an exception of every Error that leaves a function of the module.
void translateErrors();

// Collects what the library warns of on this thread, and shows it as warnings.warn() does. Without
// one, warnings are not shown.
class Warnings {
public:
    // Called once, when the module is loaded.
    static void install();

    Warnings();
    ~Warnings();
    Warnings(const Warnings&) = delete;
    Warnings& operator=(const Warnings&) = delete;

    // Throws if a filter of the program makes an exception of a warning. Needs the interpreter's
    // lock.
    void show();
    // Like show(), after a save that took place: such an exception is only reported, as one in a
    // destructor is.
    void showAfterSave();

private:
    static thread_local Warnings* current;
    Warnings* const outer_;
    std::vector<std::string> messages_;
};

}  // namespace qzapp::python
