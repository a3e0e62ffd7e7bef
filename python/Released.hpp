#pragma once

#include <pybind11/pybind11.h>
#include <foundation/SaveWatch.hpp>

#include <cstdint>
#include <optional>
#include <utility>

namespace qzapp::python {

// Runs work without the interpreter's lock, and returns its result. The work must not touch Python's
// objects.
template <class Work>
auto released(Work work) {
    const pybind11::gil_scoped_release free;
    return work();
}

// Whether a signal's handler has raised an exception, which then is set. Needs the interpreter's lock;
// handlers run on the main thread only.
inline bool isInterrupted() {
    return PyErr_CheckSignals() != 0;
}

// Like released(), for work that saves: a signal whose handler raises an exception, as Ctrl-C does, cancels
// the save, which leaves the old file, and the exception is thrown here.
template <class Work>
auto savingReleased(Work work) {
    std::optional<pybind11::error_already_set> raised;
    try {
        return released([&] {
            const foundation::SaveWatch watch([&](std::uint64_t) {
                const pybind11::gil_scoped_acquire held;
                if (!raised && isInterrupted()) raised.emplace();
                return !raised;
            });
            return work();
        });
    } catch (...) {
        if (raised) throw std::move(*raised);
        throw;
    }
}

}  // namespace qzapp::python
