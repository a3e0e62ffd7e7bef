#include "tools/qzapp/catalogue/IndexRun.hpp"

#include <foundation/Threads.hpp>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "tools/qzapp/catalogue/Batch.hpp"
#include "tools/qzapp/catalogue/Entry.hpp"
#include "tools/qzapp/catalogue/Pictures.hpp"
#include "tools/qzapp/catalogue/ReadEntry.hpp"
#include "tools/qzapp/catalogue/Rows.hpp"
#include "tools/qzapp/catalogue/Schema.hpp"
#include "tools/qzapp/catalogue/Sqlite.hpp"
#include "tools/qzapp/catalogue/Walk.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/cli/ProgressBar.hpp"
#include "tools/qzapp/cli/Worker.hpp"
#include "tools/qzapp/pictures/PictureScaler.hpp"

namespace qzapp {
namespace {

// A thread waits while its picture is scaled. So one more than usual keeps the processors busy,
// unless the user wants fewer than usual.
void addThreadThatWaits() {
    using namespace foundation::threads;
    const unsigned wanted = limit();
    setLimit(0);
    const unsigned usual = limit();
    setLimit(wanted < usual ? wanted : std::max(wanted, usual + 1));
}

// Reads the files on several threads and sends an encoded entry of each, in the order of the files.
void sendEntries(const std::vector<FoundFile>& files, Pictures& pictures,
                 const CagedWorker::Send& send) {
    constexpr std::size_t kSlotsPerThread = 4;  // one file takes much longer than another
    struct Slot {
        const FoundFile* file = nullptr;
        std::string entry;
    };
    addThreadThatWaits();
    foundation::threads::Pipeline pipeline;
    pipeline.slots = kSlotsPerThread * foundation::threads::limit();
    std::vector<Slot> slots(pipeline.slots);
    auto next = files.begin();
    pipeline.feed = [&](std::size_t slot) {
        if (next == files.end()) return false;
        slots[slot].file = &*next++;
        return true;
    };
    pipeline.work = [&](std::size_t slot) {
        slots[slot].entry = encoded(readEntry(*slots[slot].file, pictures));
    };
    pipeline.take = [&](std::size_t slot) { send(slots[slot].entry); };
    pipeline.run();
}

class IndexRun {
public:
    IndexRun(const FileName& catalogue, const std::vector<std::string>& folders, bool rescan)
        : catalogue_(&catalogue), folders_(outermost(folders)) {
        compareAll(rescan);
    }

    IndexResult run() {
        // Forked before the catalogue is opened for writing: whoever takes the reading process over
        // shall not find it open.
        std::optional<pictures::PictureScaler> scaler;
        std::optional<CagedWorker> worker;
        if (!toRead_.empty()) {
            scaler.emplace();
            startIn(worker, *scaler);
        }
        Made ignored = Made::Found;
        const auto catalogue = openOrMakeCatalogue(*catalogue_, ignored);
        RowWriter rows(*catalogue);
        Batch batch(*catalogue, rows, kOwnSource);
        if (worker) takeFrom(*worker, batch);
        batch.write();
        batch.remove(gone_);
        catalogue->inTransaction([&] {
            if (!toRead_.empty() || !gone_.empty()) rows.settlePictures();
            noteFolders(rows);
        });
        result_.apps = catalogue->integer("SELECT count(*) FROM apps");
        result_.unscaled = rows.countUnscaled();
        result_.unreadable =
            catalogue->integer("SELECT count(*) FROM apps WHERE error IS NOT NULL");
        return std::move(result_);
    }

private:
    void compareAll(bool rescan) {
        std::vector<Walk> walks;
        for (const std::string& folder : folders_)
            walks.push_back(walkOver(folder));
        const auto catalogue = openOrMakeCatalogue(*catalogue_, result_.made);
        RowReader reader(*catalogue);
        // What could not be scaled is tried again with the rest.
        knownPictures_ = reader.knownPictures(!rescan);
        for (std::size_t i = 0; i < folders_.size(); ++i) {
            std::ranges::copy(walks[i].unlisted, std::back_inserter(result_.unread));
            Differences differences =
                compare(std::move(walks[i]), reader.filesBelow(kOwnSource, folders_[i]), rescan);
            result_.added += std::ssize(differences.added);
            result_.changed += std::ssize(differences.changed);
            result_.removed += std::ssize(differences.gone);
            std::ranges::move(differences.added, std::back_inserter(toRead_));
            std::ranges::move(differences.changed, std::back_inserter(toRead_));
            std::ranges::move(differences.gone, std::back_inserter(gone_));
        }
    }

    void startIn(std::optional<CagedWorker>& worker, pictures::PictureScaler& scaler) const {
        Cage cage;
        for (const std::string& folder : folders_)
            cage.mayRead(folder);
        worker.emplace(cage, [&](const CagedWorker::Send& send) {
            Pictures pictures(scaler, knownPictures_);
            sendEntries(toRead_, pictures, send);
        });
    }

    void takeFrom(CagedWorker& worker, Batch& batch) {
        std::atomic<std::uint64_t> done = 0;
        const ProgressBar progress(toRead_.size(), done);
        while (const auto piece = worker.next()) {
            std::optional<Entry> entry = decodedEntry(*piece);
            if (!entry || done == toRead_.size() || entry->path != toRead_[done].path)
                throw std::runtime_error(
                    "the process that reads the apps sent what it should not; a malicious app may "
                    "have taken it over");
            if (entry->isUnread && entry->app && entry->app->error)
                result_.unread.push_back({entry->path, *entry->app->error});
            batch.put(*std::move(entry), piece->size());
            ++done;
        }
    }

    void noteFolders(RowWriter& rows) const {
        const std::int64_t time = now();
        for (const std::string& folder : folders_)
            rows.putFolder(kOwnSource, {folder, time});
        rows.setUpdated(kOwnSource, time);
    }

    const FileName* catalogue_;
    std::vector<std::string> folders_;
    std::vector<FoundFile> toRead_;
    std::vector<KnownFile> gone_;
    std::set<std::string> knownPictures_;
    IndexResult result_;
};

}  // namespace

IndexResult indexFolders(const FileName& catalogue, const std::vector<std::string>& folders,
                         bool rescan) {
    return IndexRun(catalogue, folders, rescan).run();
}

}  // namespace qzapp
