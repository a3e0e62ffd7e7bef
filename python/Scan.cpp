#include "python/Scan.hpp"

#include <foundation/Threads.hpp>

#include <algorithm>
#include <memory>
#include <utility>

#include "app/FileName.hpp"
#include "app/InputFiles.hpp"

namespace qzapp::python {

namespace {

// Enough for starting the threads to cost little, and few enough for the first to come soon.
constexpr std::size_t kAtOnce = 256;

Error renamed(const Error& error, const std::string& shown) {
    return error.code() ? Error(shown, error.text(), error.code())
                        : Error(shown, error.text(), error.cause());
}

// Nothing if the file is not an app.
std::optional<Scanned> read(const std::string& absolute, const std::string& shown) {
    try {
        auto file = openListed(absolute);
        if (!file) return std::nullopt;
        file->shown = shown;
        const Form form = formOf(*file);
        return Scanned{shown, form, about(*file, [&] { return openApp(*file)->readMetadata(); })};
    } catch (const Error& error) {
        return Scanned{.name = shown, .error = renamed(error, shown)};
    }
}

}  // namespace

Scan::Scan(const std::string& shown, const std::string& absolute, std::size_t threads)
    : threads_(threads), shown_(shown), absolute_(absolute) {
    FileName folder = fileNamed(absolute);
    folder.shown = shown;
    found_ = appsBelow(folder);
}

std::string Scan::shownName(const std::string& name) const {
    return shown_ + name.substr(absolute_.size());
}

std::vector<Scanned> Scan::next(const std::function<bool()>& mayGoOn) {
    if (!process_.isOfThisProcess())
        throw Error(shown_, "this scan belongs to the process that began it; begin another one");
    const std::lock_guard lock(mutex_);
    std::vector<Scanned> some;
    while (some.empty() && file_ < found_.files.size() && mayGoOn())
        some = readSome(mayGoOn);
    if (!some.empty() || file_ < found_.files.size()) return some;
    for (const auto& [name, reason] : std::exchange(found_.unlisted, {}))
        some.push_back(
            {.name = shownName(name), .error = Error(shownName(name), reason, std::error_code())});
    return some;
}

std::vector<Scanned> Scan::readSome(const std::function<bool()>& mayGoOn) {
    std::vector<Scanned> some;
    const std::size_t end = std::min(file_ + kAtOnce, found_.files.size());
    foundation::threads::Pipeline pipeline;
    pipeline.slots = kAtOnce;
    if (threads_ != 0) pipeline.workers = threads_;
    std::vector<std::size_t> files(pipeline.slots);
    std::vector<std::optional<Scanned>> read(pipeline.slots);
    pipeline.feed = [&](std::size_t slot) {
        if (file_ == end || !mayGoOn()) return false;
        files[slot] = file_++;
        return true;
    };
    pipeline.work = [&](std::size_t slot) {
        const std::string& name = found_.files[files[slot]];
        read[slot] = python::read(name, shownName(name));
    };
    pipeline.take = [&](std::size_t slot) {
        if (read[slot]) some.push_back(*std::exchange(read[slot], std::nullopt));
    };
    pipeline.run();
    return some;
}

}  // namespace qzapp::python
