#pragma once

#include "app/FileName.hpp"

#include <stdexcept>
#include <string>
#include <utility>

namespace qzapp {

// An error in the form that the user sees: what it is about (a file, as a rule), then what was found
// and what to do.
class Error : public std::runtime_error {
public:
    Error(const std::string& subject, const std::string& text)
        : std::runtime_error(subject + ": " + text), text_(text) {}
    // Without the subject.
    const std::string& text() const noexcept { return text_; }

private:
    std::string text_;
};

// Throws the exception in flight again as an Error about `file`, in whose message the library may also
// name `other`. For use in a handler.
[[noreturn]] void rethrowAbout(const FileName& file, const FileName* other = nullptr);

// Runs `action`; whatever it throws becomes an Error about `file`, unless it is one already.
template <class Action>
decltype(auto) about(const FileName& file, Action&& action) {
    try {
        return std::forward<Action>(action)();
    } catch (const Error&) {
        throw;
    } catch (...) {
        rethrowAbout(file);
    }
}

// The same for an action that also reads or writes `other`. The Error is about `file`. Where the library's
// message names `other`, the Error calls it what the user calls it.
template <class Action>
decltype(auto) about(const FileName& file, const FileName& other, Action&& action) {
    try {
        return std::forward<Action>(action)();
    } catch (const Error&) {
        throw;
    } catch (...) {
        rethrowAbout(file, &other);
    }
}

}  // namespace qzapp
