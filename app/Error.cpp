#include "app/Error.hpp"

#include <fl/filesystem.hpp>
#include <foundation/SaveWatch.hpp>
#include <foundation/Shown.hpp>

#include <cstddef>
#include <exception>
#include <new>
#include <optional>
#include <system_error>
#include <vector>

namespace qzapp {
namespace {

// The names that the libraries' messages may use for the file.
std::vector<std::string> spellings(const FileName& file) {
    if (file.held)
        return {foundation::shown(file.path)};  // the libraries know only the private name
    std::vector<std::string> names;
    const auto add = [&](const fl::filesystem::path& path) {
        names.push_back(foundation::shown(path));
    };
    try {
        add(fl::filesystem::canonical(file.path));
    } catch (const std::system_error&) {
        // A file that does not exist has no canonical name.
    }
    add(fl::filesystem::absolute(file.path));
    add(file.path);
    return names;
}

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
    if (from.empty() || from == to) return;
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
}

void replaceSpellings(std::string& text, const FileName& file) {
    for (const std::string& name : spellings(file))
        replaceAll(text, name, file.shown);
}

// A library's message, with the file named as the user named it, but not at the front, where Error
// adds the name.
std::string inUsersWords(const FileName& file, std::string text) {
    for (const std::string& name : spellings(file)) {
        const std::string prefix = name + ": ";
        if (text.starts_with(prefix)) {
            text.erase(0, prefix.size());
        }
    }
    replaceSpellings(text, file);
    return text;
}

// What the system said, if it is the system that failed.
std::optional<std::error_code> systemsCode(const std::exception& failure) {
    if (const auto* error = dynamic_cast<const Error*>(&failure)) {
        return error->isPassing() ? std::optional(error->code()) : std::nullopt;
    }
    if (dynamic_cast<const std::bad_alloc*>(&failure) != nullptr)
        return std::make_error_code(std::errc::not_enough_memory);
    if (dynamic_cast<const foundation::Cancelled*>(&failure) != nullptr)
        return std::make_error_code(std::errc::operation_canceled);
    if (const auto* error = dynamic_cast<const std::system_error*>(&failure)) return error->code();
    const auto* outer = dynamic_cast<const std::nested_exception*>(&failure);
    if (outer == nullptr || !outer->nested_ptr()) return std::nullopt;
    try {
        outer->rethrow_nested();
    } catch (const std::exception& nested) {
        return systemsCode(nested);
    }
}

}  // namespace

std::string Error::textAbout(std::string item) const {
    if (item.starts_with('/')) item.erase(0, 1);  // of a part, whose item has none
    item += ": ";
    return text_.starts_with(item) ? text_.substr(item.size()) : text_;
}

Error::Pieces Error::pieces() const {
    Pieces pieces{{}, text_, {}};
    // The name of a place comes first and has no blank; sentences have some.
    const std::size_t colon = pieces.found.find(": ");
    if (colon != std::string::npos && pieces.found.find(' ') > colon) {
        pieces.place = pieces.found.substr(0, colon);
        pieces.found.erase(0, colon + 2);
    }
    // Advice may have several sentences.
    const std::size_t semicolon = pieces.found.find("; ");
    if (semicolon != std::string::npos) {
        pieces.advice = pieces.found.substr(semicolon + 2);
        pieces.found.erase(semicolon);
    }
    return pieces;
}

Error::Cause causeOf(const std::exception& failure) {
    return systemsCode(failure) ? Error::Cause::Passing : Error::Cause::Lasting;
}

void rethrowAbout(const FileName& file, const FileName* other) {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        throw Error(file.shown, "there is not enough memory for it", std::errc::not_enough_memory);
    } catch (const std::exception& e) {
        std::string subject = file.shown;
        std::string text = inUsersWords(file, e.what());
        if (other != nullptr) {
            replaceSpellings(text, *other);
            const std::string start = other->shown + ": ";
            if (text.starts_with(start)) {
                subject = other->shown;
                text.erase(0, start.size());
            }
        }
        if (const auto code = systemsCode(e)) throw Error(subject, text, *code);
        throw Error(subject, text);
    }
}

}  // namespace qzapp
