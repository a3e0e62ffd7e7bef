#include "app/Error.hpp"

#include <fl/filesystem.hpp>
#include <foundation/Shown.hpp>

#include <cstddef>
#include <exception>
#include <new>
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

}  // namespace

std::string Error::textAbout(std::string item) const {
    if (item.starts_with('/')) item.erase(0, 1);  // of a part, whose item has none
    item += ": ";
    return text_.starts_with(item) ? text_.substr(item.size()) : text_;
}

Error::Cause causeOf(const std::exception& failure) {
    if (const auto* error = dynamic_cast<const Error*>(&failure)) return error->cause();
    const bool isSystems = dynamic_cast<const std::bad_alloc*>(&failure) != nullptr ||
                           dynamic_cast<const std::system_error*>(&failure) != nullptr;
    if (isSystems) return Error::Cause::Passing;
    const auto* outer = dynamic_cast<const std::nested_exception*>(&failure);
    if (outer == nullptr || !outer->nested_ptr()) return Error::Cause::Lasting;
    try {
        outer->rethrow_nested();
    } catch (const std::exception& nested) {
        return causeOf(nested);
    }
}

void rethrowAbout(const FileName& file, const FileName* other) {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        throw Error(file.shown, "there is not enough memory for it", Error::Cause::Passing);
    } catch (const std::exception& e) {
        std::string text = inUsersWords(file, e.what());
        if (other == nullptr) throw Error(file.shown, text, causeOf(e));
        replaceSpellings(text, *other);
        const std::string start = other->shown + ": ";
        if (!text.starts_with(start)) throw Error(file.shown, text, causeOf(e));
        throw Error(other->shown, text.substr(start.size()), causeOf(e));
    }
}

}  // namespace qzapp
