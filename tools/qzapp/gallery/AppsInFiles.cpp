#include "tools/qzapp/gallery/AppsInFiles.hpp"

#include <fmt/format.h>
#include <appserialization/AppMetadata.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <foundation/Threads.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include "app/Error.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/ForEachApp.hpp"
#include "tools/qzapp/cli/ProgressBar.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/gallery/GalleryHtml.hpp"
#include "tools/qzapp/gallery/GalleryPictures.hpp"

namespace qzapp {
namespace {

// The path of a file without links in its folders.
std::string withoutLinks(const std::string& name) {
    const std::filesystem::path path(name);
    std::error_code ignored;
    const auto folder =
        std::filesystem::canonical(path.has_parent_path() ? path.parent_path() : ".", ignored);
    return (folder / path.filename()).string();
}

}  // namespace

// What was read of a file.
struct AppsInFiles::ReadApp {
    bool isApp = true;  // not so for a source file without an app
    appserialization::AppMetadata metadata;
    appserialization::Screenshot screenshot;
    std::string failure, complaint;  // without and with the name; empty if it could be read
};

// If one folder is named, its apps are shown by their names in it.
AppsInFiles::AppsInFiles(const std::vector<std::string>& names, Complain complain, Cage& cage)
    : complain_(std::move(complain)) {
    for (const std::string& name : names) {
        const FileName file = fileArgument(name);
        if (!isFolder(name)) {
            appArgument(name);  // throws if it cannot be opened
            cage.mayRead(file.bytes());
            files_.push_back({name, name, false});
            continue;
        }
        const AppsBelow found = appsBelow(file);
        letRead(cage, file.bytes(), found.files);
        const std::size_t prefix =
            names.size() > 1 ? 0 : name.size() + (name.ends_with('/') ? 0 : 1);
        for (const std::string& each : found.files)
            files_.push_back({each, each.substr(prefix), true});
        for (const Unlisted& each : found.unlisted)
            gaps_.push_back({each.name, each.name.substr(prefix), each.reason});
    }
}

CardSource AppsInFiles::cards() const {
    return [this](const std::function<void(const Card&)>& take) {
        forEach<Card>(
            [](const File& file, const ReadApp& app) -> Card {
                if (!app.failure.empty()) return {failedCard(file.shown, app.failure), false};
                return {appCard(file.shown, app.metadata, app.screenshot)};
            },
            take);
    };
}

RecordSource AppsInFiles::records(const GalleryFolder& folder,
                                  pictures::PictureScaler& scaler) const {
    return [this, &folder, &scaler](const std::function<void(const GalleryRecord&)>& take) {
        GalleryPictures pictures(folder);
        forEach<GalleryRecord>(
            [&](const File& file, const ReadApp& app) {
                GalleryRecord record;
                record.file = file.shown;
                if (!file.name.empty())
                    record.link = linkTo(withoutLinks(file.name), folder.path());
                record.metadata = app.metadata;
                record.failure = app.failure;
                // If the picture cannot be written, all of the gallery fails.
                const auto& bytes = app.screenshot.second;
                pictures.scale({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, scaler,
                               record);
                return record;
            },
            take);
        if (const std::size_t count = pictures.unscaled(); count > 0) {
            complain_(
                fmt::format("{} screenshot{} could not be scaled now; write the gallery again",
                            count, count == 1 ? "" : "s"));
        }
    };
}

AppsInFiles::ReadApp AppsInFiles::read(const File& named) {
    ReadApp app;
    try {
        const auto file = named.isListed ? openListed(named.name) : appArgument(named.name);
        if (!file) {
            app.isApp = false;
            return app;
        }
        const auto reader = openApp(*file);
        about(*file, [&] {
            app.metadata = reader->readMetadata();
            app.screenshot = readScreenshot(*file, *reader);
            requireUnchanged(*file);
        });
    } catch (const Error& e) {
        app = {};
        app.failure = e.text();
        app.complaint = e.what();
    }
    return app;
}

// Calls `take` with what `make` makes of each app and each gap, in their order; several threads
// call `make`. Holds only a few results at a time, because all of them may not fit into memory.
template <class Result>
void AppsInFiles::forEach(const std::function<Result(const File&, const ReadApp&)>& make,
                          const std::function<void(const Result&)>& take) const {
    struct Slot {
        const File* file = nullptr;
        std::optional<Result> result;
        std::string complaint;
    };
    std::atomic<std::uint64_t> done = 0;
    const ProgressBar progress(files_.size(), done);
    foundation::threads::Pipeline pipeline;
    pipeline.slots = foundation::threads::limit() + 1;
    std::vector<Slot> slots(pipeline.slots);
    auto next = files_.begin();
    pipeline.feed = [&](std::size_t slot) {
        if (next == files_.end()) return false;
        slots[slot] = {&*next++, {}, {}};
        return true;
    };
    pipeline.work = [&](std::size_t slot) {
        Slot& at = slots[slot];
        const ReadApp app = read(*at.file);
        at.complaint = app.complaint;
        if (app.isApp) at.result = make(*at.file, app);
    };
    pipeline.take = [&](std::size_t slot) {
        const Slot& at = slots[slot];
        if (!at.complaint.empty()) complain_(at.complaint);
        if (at.result) take(*at.result);
        ++done;
    };
    pipeline.run();
    for (const Gap& gap : gaps_) {
        ReadApp unread;
        unread.failure = gap.reason;
        complain_(gap.name + ": " + gap.reason);
        take(make({"", gap.shown, true}, unread));
    }
}

}  // namespace qzapp
