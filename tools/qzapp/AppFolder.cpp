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
bool holdsAppSections(const FileName& file) {
    try {
        return readBytes(file, kMaxContentBytes).find(kSectionMark) != std::string::npos;
    } catch (const Error&) {
        return true;
    }
}

bool isSource(const std::string& name) {
    return name.ends_with(".k");
}

bool mayBeApp(const fs::directory_entry& entry) {
    std::error_code ignored;
    if (!entry.is_regular_file(ignored)) return false;
    const std::string name = entry.path().string();
    // Also where only the case of the extension is wrong, which reading it will tell.
    return name.ends_with(".kvpkg") || name.ends_with(".KVPKG") || isSource(name);
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

std::optional<FileName> openListed(const std::string& name) {
    FileName file = hold(fileArgument(name));
    if (isSource(name) && !holdsAppSections(file)) return std::nullopt;
    return file;
}

namespace {

// A name of the command line, with the files that it stands for.
struct Named {
    std::string name;
    std::vector<std::string> files;
    bool isListed;  // being a folder
};

std::vector<Named> filesOf(const std::vector<std::string>& names, const Complain& complain) {
    std::vector<Named> all;
    for (const std::string& name : names) {
        const bool isListed = name != kStandardStream && isFolder(name);
        all.push_back({name, {name}, isListed});
        if (isListed) all.back().files = appsBelow(fileArgument(name), complain);
    }
    return all;
}

std::size_t countOf(const std::vector<Named>& all) {
    std::size_t count = 0;
    for (const Named& named : all)
        count += named.files.size();
    return count;
}

}  // namespace

int forEachApp(const std::vector<std::string>& names,
               const std::function<int(const FileName&)>& action) {
    int status = kDone;
    const auto complain = [&](const std::string& text) {
        report(text);
        status = kFailed;
    };
    const std::vector<Named> all = filesOf(names, complain);
    const std::size_t count = countOf(all);
    std::atomic<std::uint64_t> done = 0;
    // Of a single file a count tells nothing, and on a terminal the output tells how far it is.
    const Progress progress(count == 1 || outputIsTerminal() ? 0 : count, done);
    // Returns whether it is an app.
    const auto visit = [&](const std::string& name, bool isListed) {
        try {
            const auto file = isListed ? openListed(name) : appArgument(name);
            if (file && action(*file) != kDone) status = kFailed;
            return file.has_value();
        } catch (const OutputError&) {
            throw;
        } catch (const Error& e) {
            complain(e.what());
            return true;
        }
    };
    for (const Named& named : all) {
        bool hasApp = false;
        for (const std::string& file : named.files) {
            hasApp |= visit(file, named.isListed);
            ++done;
        }
        if (!hasApp) complain(named.name + ": holds no app; check the name");
    }
    return status;
}

}  // namespace qzapp
