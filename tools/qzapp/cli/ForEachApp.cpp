#include "tools/qzapp/cli/ForEachApp.hpp"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "app/AppFolder.hpp"
#include "app/Errors.hpp"
#include "app/Files.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/Display.hpp"
#include "tools/qzapp/cli/ProgressBar.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"

namespace qzapp {
namespace {

// As many named files are opened at the start. If there are more, each is opened when its turn comes, so
// that there are enough descriptors.
constexpr std::size_t kMostOpened = 32;

// A file that was opened at the start, or the reason why it could not be.
struct Opened {
    std::optional<FileName> file;
    std::exception_ptr failure;
};

// A name on the command line and the files that it stands for: itself, or what a folder holds.
struct Named {
    std::string name;
    std::vector<std::string> files;
    bool isListed;                 // it is a folder
    std::optional<Opened> opened;  // if it was opened at the start
};

std::vector<std::string> listed(const FileName& folder, const Complain& complain) {
    try {
        AppsBelow apps = appsBelow(folder);
        for (const UnlistedFolder& unlisted : apps.unlisted)
            complain(unlisted.name + ": " + unlisted.reason);
        return std::move(apps.files);
    } catch (const Error& e) {
        complain(e.what());
        return {};
    }
}

std::vector<Named> filesOf(const std::vector<std::string>& names, const Complain& complain) {
    std::vector<Named> all;
    for (const std::string& name : names) {
        const bool isListed = name != kStandardStream && isFolder(name);
        all.push_back({name, {name}, isListed, std::nullopt});
        if (isListed) all.back().files = listed(fileArgument(name), complain);
    }
    return all;
}

std::size_t countOf(const std::vector<Named>& all) {
    std::size_t count = 0;
    for (const Named& named : all)
        count += named.files.size();
    return count;
}

Opened openNow(const std::string& name) {
    try {
        return {appArgument(name), nullptr};
    } catch (const Error&) {
        return {std::nullopt, std::current_exception()};
    }
}

// Takes the file's stamp anew: what was written to it before its turn does no harm.
FileName take(const Opened& opened) {
    if (opened.failure) std::rethrow_exception(opened.failure);
    return opened.file->isStandardInput ? *opened.file : hold(*opened.file);
}

// Opens the named files, and confines this process to them and what is in the named folders. Standard
// input is copied now, because the cage allows no file for the copy.
void confineTo(std::vector<Named>& all) {
    Cage cage;
    for (Named& named : all) {
        if (named.isListed) {
            letRead(cage, named.name, named.files);
        } else if (all.size() <= kMostOpened || named.name == kStandardStream) {
            named.opened = openNow(named.name);
        } else {
            cage.mayRead(named.name);
        }
    }
    cage.enter();
}

}  // namespace

void letRead(Cage& cage, const std::string& folder, const std::vector<std::string>& files) {
    cage.mayRead(folder);
    for (const std::string& file : files) {
        std::error_code ignored;
        if (std::filesystem::is_symlink(file, ignored)) cage.mayRead(file);
    }
}

int forEachApp(const std::vector<std::string>& names,
               const std::function<int(const FileName&)>& action) {
    int status = kDone;
    const auto complain = [&](const std::string& text) {
        report(text);
        status = kFailed;
    };
    std::vector<Named> all = filesOf(names, complain);
    confineTo(all);
    const std::size_t count = countOf(all);
    std::atomic<std::uint64_t> done = 0;
    // No bar for a single file, whose count would say nothing, or if the output itself shows the
    // progress.
    const ProgressBar progress(count == 1 || outputIsTerminal() ? 0 : count, done);
    // Returns false if a file of a folder is not an app after all.
    const auto visit = [&](const Named& named, const std::string& name) {
        try {
            const auto file = named.isListed ? openListed(name)
                              : named.opened ? take(*named.opened)
                                             : appArgument(name);
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
            hasApp |= visit(named, file);
            ++done;
        }
        if (!hasApp) complain(named.name + ": holds no app; check the name");
    }
    return status;
}

}  // namespace qzapp
