#pragma once

#include <Python.h>
#include <pybind11/pybind11.h>
#include <foundation/SaveWatch.hpp>

#include <cstdint>
#include <optional>
#include <utility>

namespace qzapp::python {

// The interpreter's lock. When the interpreter is shutting down, Python ends a thread that asks for
// the lock, by unwinding its stack, which functions of C++ that let nothing pass turn into the end
// of the process. These classes keep such a thread until the process ends.

// Gives the lock back for a while.
class Unlocked {
public:
    Unlocked() : state_(PyEval_SaveThread()) {}
    ~Unlocked();
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;

private:
    PyThreadState* state_;
};

// Takes the lock for a while, on any thread.
class Locked {
public:
    Locked();
    ~Locked() { PyGILState_Release(state_); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

private:
    PyGILState_STATE state_;
};

// Runs work without the interpreter's lock, and returns its result. The work must not touch
// Python's objects.
template <class Work>
auto released(Work work) {
    const Unlocked free;
    return work();
}

// Whether a signal's handler has raised an exception, which then is set. Needs the interpreter's
// lock; handlers run on the main thread only.
inline bool isInterrupted() {
    return PyErr_CheckSignals() != 0;
}

// Like released(), for work that saves: a signal whose handler raises an exception, as Ctrl-C does,
// cancels the save, which leaves the old file, and the exception is thrown here.
template <class Work>
auto savingReleased(Work work) {
    std::optional<pybind11::error_already_set> raised;
    try {
        return released([&] {
            const foundation::SaveWatch watch([&](std::uint64_t) {
                const Locked held;
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
