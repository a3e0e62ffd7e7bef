#pragma once

#include "app/FileName.hpp"

#include <exception>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace qzapp {

// An error in the form that the user sees: the subject (usually a file, as the user named it), then
// what was found and what to do about it.
class Error : public std::runtime_error {
public:
    // Whether another try may go well although nobody has mended anything. Passing are a lack of
    // memory or descriptors, a system call that fails, and a change of the file meanwhile; what a
    // file holds, or how it is named, is wrong for good.
    enum class Cause { Lasting, Passing };

    Error(const std::string& subject, const std::string& text, Cause cause = Cause::Lasting)
        : std::runtime_error(subject + ": " + text),
          subject_(subject),
          text_(text),
          cause_(cause) {}
    // For a failure of the system, which has the cause Passing.
    Error(const std::string& subject, const std::string& text, std::error_code code)
        : Error(subject, text, Cause::Passing) {
        code_ = code;
    }
    Error(const std::string& subject, const std::string& text, std::errc code)
        : Error(subject, text, std::make_error_code(code)) {}

    const std::string& subject() const noexcept { return subject_; }
    // The message without the subject, for callers that add to it.
    const std::string& text() const noexcept { return text_; }
    // text() without the name of the item that it begins with, for callers that name the item or
    // part themselves.
    std::string textAbout(std::string item) const;
    // The three pieces of text(): the part, item or section that it begins with, what was found
    // there, and what to do. The first and the last are empty if the text has no such piece.
    struct Pieces {
        std::string place, found, advice;
    };
    Pieces pieces() const;
    Cause cause() const noexcept { return cause_; }
    bool isPassing() const noexcept { return cause_ == Cause::Passing; }
    // What the system said, if it was the system that failed; otherwise zero.
    const std::error_code& code() const noexcept { return code_; }

private:
    std::string subject_;
    std::string text_;
    Cause cause_;
    std::error_code code_;
};

// The name of a file does not end in the extension that it should have.
class ExtensionError : public Error {
public:
    enum class Fault { OtherExtension, NotInLowerCase };

    ExtensionError(const std::string& subject, const std::string& text, Fault fault)
        : Error(subject, text), fault_(fault) {}
    Fault fault() const noexcept { return fault_; }

private:
    Fault fault_;
};

// The cause of an exception: Passing for an Error that says so, std::bad_alloc, std::system_error,
// a save that was cancelled, and whatever one of these is nested in.
Error::Cause causeOf(const std::exception& failure);

// Rethrows the exception in flight as an Error about `file`. The libraries know a file by its
// absolute path or its private name; in the message, each of these becomes the name that the user
// gave. That is done for `other` too, if the message may name a second file; if it begins with that
// name, the Error is about `other`. Call it only in a handler.
[[noreturn]] void rethrowAbout(const FileName& file, const FileName* other = nullptr);

// Runs `action` and returns its result. Whatever it throws becomes an Error about `file`, unless it
// is an Error already.
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

// Like about(file, action), for an action that also reads or writes `other` (see rethrowAbout()).
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
