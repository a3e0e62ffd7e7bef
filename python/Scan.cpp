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

// Nothing if the file is not an app.
std::optional<Scanned> read(const std::string& name) {
    try {
        const auto file = openListed(name);
        if (!file) return std::nullopt;
        const Form form = formOf(*file);
        return Scanned{name, form, about(*file, [&] { return openApp(*file)->readMetadata(); })};
    } catch (const Error& error) {
        return Scanned{.name = name, .error = error};
    }
}

}  // namespace

Scan::Scan(const std::string& folder, std::size_t threads)
    : threads_(threads), found_(appsBelow(fileNamed(folder))) {}

std::vector<Scanned> Scan::next(const std::function<bool()>& mayGoOn) {
    const std::lock_guard lock(mutex_);
    std::vector<Scanned> some;
    while (some.empty() && file_ < found_.files.size() && mayGoOn())
        some = readSome(mayGoOn);
    if (!some.empty() || file_ < found_.files.size()) return some;
    for (const auto& [name, reason] : std::exchange(found_.unlisted, {}))
        some.push_back({.name = name, .error = Error(name, reason, std::error_code())});
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
    pipeline.work = [&](std::size_t slot) { read[slot] = python::read(found_.files[files[slot]]); };
    pipeline.take = [&](std::size_t slot) {
        if (read[slot]) some.push_back(*std::exchange(read[slot], std::nullopt));
    };
    pipeline.run();
    return some;
}

}  // namespace qzapp::python
