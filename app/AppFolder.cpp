#include "app/AppFolder.hpp"

#include <fl/i18n.hpp>
#include <foundation/ustring.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <system_error>
#include <utility>

#include "app/Error.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "textapp/Layout.hpp"

namespace qzapp {
namespace {

namespace fs = std::filesystem;
namespace textapp = appserialization::textapp;
using foundation::ustring;
using foundation::ustring_view;

// A source that cannot be read counts as an app, so that the verb reads it and reports why it
// cannot.
bool holdsAppSections(const FileName& file) {
    try {
        return readBytes(file, kMaxContentBytes).find(textapp::kAppSectionOpen) !=
               std::string::npos;
    } catch (const Error&) {
        return true;
    }
}

bool isSource(ustring_view name) {
    return name.ends_with(kTextExtension);
}

bool hasNameOfApp(const fs::directory_entry& entry) {
    const ustring name = fl::i18n::utf8_to_ustring(entry.path().string());
    // In any case: a verb that opens "A.KVPKG" says that the extension must be in lower case.
    return fl::i18n::to_lower(name).ends_with(kPackagedExtension) || isSource(name);
}

std::string whyNot(const char* done, const std::error_code& error) {
    return std::string("cannot be ") + done + " (" + error.message() + "); check its permissions";
}

bool isHidden(const fs::path& path) {
    return path.filename().string().starts_with('.');
}

// A link that leads nowhere, or where nobody may look, counts, so that the verb that opens it
// reports why it cannot.
bool mayLeadToFile(const fs::directory_entry& link) {
    std::error_code ignored;
    const fs::file_status target = link.status(ignored);
    return fs::is_regular_file(target) || !fs::exists(target);
}

// Adds an entry of a folder to `found`, or to `folders` if it is one itself. Most file systems tell
// what an entry is together with its name; on others it is asked for here, which may fail.
void add(const fs::directory_entry& entry, std::vector<std::string>& folders, AppsBelow& found) {
    const std::string name = entry.path().string();
    std::error_code error;
    if (entry.is_symlink(error)) {
        if (hasNameOfApp(entry) && mayLeadToFile(entry)) found.files.push_back(name);
    } else if (!error && entry.is_directory(error)) {
        folders.push_back(name);
    } else if (!error && entry.is_regular_file(error)) {
        if (hasNameOfApp(entry)) found.files.push_back(name);
    } else if (error && error != std::errc::no_such_file_or_directory) {  // it may be gone by now
        found.unlisted.push_back({name, whyNot("looked at", error)});
    }
}

void list(const std::string& folder, std::vector<std::string>& folders, AppsBelow& found) {
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (!isHidden(entry.path())) add(entry, folders, found);
    }
}

}  // namespace

bool isFolder(const std::string& name) {
    std::error_code ignored;
    return fs::is_directory(name, ignored);
}

AppsBelow appsBelow(const FileName& folder) {
    AppsBelow apps;
    std::vector<std::string> folders = {folder.bytes()};
    while (!folders.empty()) {
        const std::string next = std::move(folders.back());
        folders.pop_back();
        try {
            list(next, folders, apps);
        } catch (const fs::filesystem_error& e) {
            const std::string reason = whyNot("listed", e.code());
            if (next == folder.bytes()) throw Error(folder.shown, reason, e.code());
            apps.unlisted.push_back({next, reason});
        }
    }
    std::ranges::sort(apps.files);
    std::ranges::sort(apps.unlisted, {}, &Unlisted::name);
    return apps;
}

bool isTextApp(const FileName& file) {
    std::array<std::byte, 1> start{};
    const auto opened = openFile(file);
    about(file, [&] { opened.readAt(start, 0); });
    return start[0] != std::byte{'<'} && holdsAppSections(file);
}

std::optional<FileName> openListed(const std::string& name) {
    FileName file = hold(fileNamed(name));
    if (isSource(file.native()) && !holdsAppSections(file)) return std::nullopt;
    return file;
}

}  // namespace qzapp
