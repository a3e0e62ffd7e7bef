#include "tools/qzapp/AppFolder.hpp"

#include <appserialization/Functions.hpp>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "tools/qzapp/Arguments.hpp"
#include "tools/qzapp/Display.hpp"
#include "tools/qzapp/Errors.hpp"
#include "tools/qzapp/Files.hpp"
#include "tools/qzapp/Forms.hpp"
#include "tools/qzapp/Output.hpp"
#include "tools/qzapp/Progress.hpp"
#include "tools/qzapp/StandardInput.hpp"

namespace qzapp {
namespace {

namespace fs = std::filesystem;

// Any of the sections that a text app ends with.
constexpr std::string_view kSectionMark = "[app:";

// A source that cannot be read may be an app; reading it will tell why it cannot.
bool holdsAppSections(const std::string& name) {
    try {
        return readBytes(fileArgument(name), kMaxContentBytes).find(kSectionMark) !=
               std::string::npos;
    } catch (const Error&) {
        return true;
    }
}

bool isApp(const fs::directory_entry& entry) {
    std::error_code ignored;
    if (!entry.is_regular_file(ignored)) return false;
    const std::string name = entry.path().string();
    // Also where only the case of the extension is wrong, which reading it will tell.
    return name.ends_with(".kvpkg") || name.ends_with(".KVPKG") ||
           (name.ends_with(".k") && holdsAppSections(name));
}

bool isHidden(const fs::path& path) {
    return path.filename().string().starts_with('.');
}

// Adds the apps of one folder to `apps` and its folders to `folders`.
void list(const std::string& folder, std::vector<std::string>& folders,
          std::vector<std::string>& apps) {
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (isHidden(entry.path())) continue;
        std::error_code ignored;
        if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) {
            folders.push_back(entry.path().string());
        } else if (isApp(entry)) {
            apps.push_back(entry.path().string());
        }
    }
}

}  // namespace

bool isFolder(const std::string& name) {
    std::error_code ignored;
    return fs::is_directory(name, ignored);
}

std::vector<std::string> appsBelow(const FileName& folder, const Complain& complain) {
    std::vector<std::string> apps;
    std::vector<std::string> folders = {folder.bytes()};
    while (!folders.empty()) {
        const std::string next = std::move(folders.back());
        folders.pop_back();
        try {
            list(next, folders, apps);
        } catch (const fs::filesystem_error& e) {
            complain(next + ": cannot be listed (" + e.code().message() +
                     "); check its permissions");
        }
    }
    std::sort(apps.begin(), apps.end());
    return apps;
}

namespace {

std::vector<std::string> filesOf(const std::vector<std::string>& names, const Complain& complain) {
    std::vector<std::string> files;
    for (const std::string& name : names) {
        if (name == kStandardStream || !isFolder(name)) {
            files.push_back(name);
            continue;
        }
        const auto apps = appsBelow(fileArgument(name), complain);
        if (apps.empty()) complain(name + ": holds no app; check the name");
        files.insert(files.end(), apps.begin(), apps.end());
    }
    return files;
}

}  // namespace

int forEachApp(const std::vector<std::string>& names,
               const std::function<int(const FileName&)>& action) {
    int status = kDone;
    const auto complain = [&](const std::string& text) {
        report(text);
        status = kFailed;
    };
    const auto files = filesOf(names, complain);
    std::atomic<std::uint64_t> done = 0;
    // Of a single file a count tells nothing, and on a terminal the output tells how far it is.
    const Progress progress(files.size() == 1 || outputIsTerminal() ? 0 : files.size(), done);
    for (const std::string& name : files) {
        try {
            if (action(appArgument(name)) != kDone) status = kFailed;
        } catch (const OutputError&) {
            throw;
        } catch (const Error& e) {
            complain(e.what());
        }
        ++done;
    }
    return status;
}

}  // namespace qzapp
