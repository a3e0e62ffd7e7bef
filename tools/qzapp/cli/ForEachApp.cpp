#include "tools/qzapp/cli/ForEachApp.hpp"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <optional>
#include <utility>

#include "app/AppFolder.hpp"
#include "app/Errors.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/Display.hpp"
#include "tools/qzapp/cli/ProgressBar.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"

namespace qzapp {
namespace {

// A name on the command line and the files that it stands for: itself, or what a folder holds.
struct Named {
    std::string name;
    std::vector<std::string> files;
    bool isListed;  // it is a folder
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
        all.push_back({name, {name}, isListed});
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
    // No bar for a single file, whose count would say nothing, or if the output itself shows the
    // progress.
    const ProgressBar progress(count == 1 || outputIsTerminal() ? 0 : count, done);
    // Returns false if a file of a folder is not an app after all.
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
