#include "app/AppFolder.hpp"

#include <fl/i18n.hpp>
#include <foundation/ustring.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <system_error>
#include <utility>

#include "app/Errors.hpp"
#include "app/Files.hpp"
#include "app/Forms.hpp"
#include "textapp/Layout.hpp"

namespace qzapp {
namespace {

namespace fs = std::filesystem;
namespace textapp = appserialization::textapp;
using foundation::ustring;
using foundation::ustring_view;

// What every app section's marker begins with: "%[app:".
std::string sectionMark() {
    return fl::i18n::ustring_to_utf8(
        ustring(textapp::kSectionOpen).append(textapp::kSectionPrefix));
}

// A source that cannot be read counts as an app, so that the verb reads it and reports why it
// cannot.
bool holdsAppSections(const FileName& file) {
    try {
        return readBytes(file, kMaxContentBytes).find(sectionMark()) != std::string::npos;
    } catch (const Error&) {
        return true;
    }
}

bool isSource(ustring_view name) {
    return name.ends_with(kTextExtension);
}

bool mayBeApp(const fs::directory_entry& entry) {
    std::error_code ignored;
    const fs::file_status status = entry.status(ignored);
    // A dangling link with the name of an app is listed, so that the verb reports it.
    const bool isBrokenLink = entry.is_symlink(ignored) && !fs::exists(status);
    if (!fs::is_regular_file(status) && !isBrokenLink) return false;
    const ustring name = fl::i18n::utf8_to_ustring(entry.path().string());
    // In any case: a verb that opens "A.KVPKG" says that the extension must be in lower case.
    return fl::i18n::to_lower(name).ends_with(kPackagedExtension) || isSource(name);
}

bool isHidden(const fs::path& path) {
    return path.filename().string().starts_with('.');
}

// Adds what may be apps in one folder to `apps`, and its folders to `folders`.
void list(const std::string& folder, std::vector<std::string>& folders,
          std::vector<std::string>& apps) {
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (isHidden(entry.path())) continue;
        std::error_code ignored;
        if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) {
            folders.push_back(entry.path().string());
        } else if (mayBeApp(entry)) {
            apps.push_back(entry.path().string());
        }
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
            list(next, folders, apps.files);
        } catch (const fs::filesystem_error& e) {
            const std::string reason =
                "cannot be listed (" + e.code().message() + "); check its permissions";
            if (next == folder.bytes()) throw Error(folder.shown, reason);
            apps.unlisted.push_back({next, reason});
        }
    }
    std::ranges::sort(apps.files);
    std::ranges::sort(apps.unlisted, {}, &UnlistedFolder::name);
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
