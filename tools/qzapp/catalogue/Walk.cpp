#include "tools/qzapp/catalogue/Walk.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <system_error>
#include <utility>

#include "app/Error.hpp"
#include "app/InputFiles.hpp"
#include "tools/qzapp/catalogue/Entry.hpp"

namespace qzapp {
namespace {

bool isBelow(const std::string& name, const std::string& folder) {
    return name.starts_with(folder) &&
           (name.size() == folder.size() || folder.ends_with('/') || name[folder.size()] == '/');
}

void add(std::string&& name, Walk& walk) {
    struct stat status {};
    if (::lstat(name.c_str(), &status) != 0) {
        if (errno == ENOENT) return;  // it has gone since it was listed
        const std::string why = std::error_code(errno, std::generic_category()).message();
        walk.unlisted.push_back(
            {std::move(name), "cannot be looked at (" + why + "); check its permissions"});
        return;
    }
    if (!S_ISREG(status.st_mode)) return;
    walk.files.push_back(
        {std::move(name),
         {status.st_size, nanosecondsOf(status.st_mtim.tv_sec, status.st_mtim.tv_nsec),
          static_cast<std::int64_t>(status.st_ino)}});
}

std::string realPath(const std::string& folder) {
    std::error_code error;
    const std::string name = std::filesystem::canonical(folder, error).string();
    if (error) {
        throw Error(folder, error == std::errc::no_such_file_or_directory
                                ? "there is no such folder; check the name"
                                : "cannot be found (" + error.message() + ")");
    }
    if (!isFolder(name)) throw Error(folder, "is not a folder; name the one with the apps");
    return name;
}

}  // namespace

Walk walkOver(const std::string& folder) {
    AppsBelow apps = appsBelow(fileNamed(folder));
    Walk walk;
    walk.unlisted = std::move(apps.unlisted);
    walk.files.reserve(apps.files.size());
    for (std::string& name : apps.files)
        add(std::move(name), walk);
    return walk;
}

Differences compare(Walk walk, const std::vector<KnownFile>& known, bool rescan) {
    Differences differences;
    const auto isUnlisted = [&](const std::string& name) {
        return std::ranges::any_of(walk.unlisted,
                                   [&](const Unlisted& each) { return isBelow(name, each.name); });
    };
    auto next = known.begin();
    const auto passKnown = [&](const KnownFile& each) {
        if (!isUnlisted(each.path)) differences.gone.push_back(each);
    };
    for (FoundFile& found : walk.files) {
        while (next != known.end() && next->path < found.path)
            passKnown(*next++);
        if (next == known.end() || next->path != found.path) {
            differences.added.push_back(std::move(found));
            continue;
        }
        const bool isSame = next->stamp == found.stamp && !next->again && !rescan;
        if (!isSame) differences.changed.push_back(std::move(found));
        ++next;
    }
    std::for_each(next, known.end(), passKnown);
    return differences;
}

std::vector<std::string> outermost(const std::vector<std::string>& folders) {
    std::vector<std::string> all, kept;
    for (const std::string& folder : folders)
        all.push_back(realPath(folder));
    for (std::size_t i = 0; i < all.size(); ++i) {
        const auto covers = [&](std::size_t other) {
            return isBelow(all[i], all[other]) && (all[i] != all[other] || other < i);
        };
        bool isCovered = false;
        for (std::size_t other = 0; other < all.size(); ++other)
            isCovered |= other != i && covers(other);
        if (!isCovered) kept.push_back(all[i]);
    }
    return kept;
}

}  // namespace qzapp
