#include "tools/qzapp/catalogue/MergeRun.hpp"

#include <cstddef>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "app/Error.hpp"
#include "tools/qzapp/catalogue/Batch.hpp"
#include "tools/qzapp/catalogue/Catalogue.hpp"
#include "tools/qzapp/catalogue/Entry.hpp"
#include "tools/qzapp/catalogue/Rows.hpp"
#include "tools/qzapp/catalogue/Schema.hpp"
#include "tools/qzapp/catalogue/Sqlite.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/cli/Worker.hpp"

namespace qzapp {
namespace {

// The first byte of a piece says what the rest is. The entries of a source follow it.
constexpr char kSource = 's', kEntry = 'e';

constexpr std::size_t kMostLabelBytes = 200;

// "lab1" for "/mnt/lab1.db".
std::string labelOf(const FileName& file) {
    const std::string name = file.shown.substr(file.shown.rfind('/') + 1);
    return name.substr(0, name.rfind('.')).substr(0, kMostLabelBytes);
}

// Adds the picture of the screenshot to the first entry that has it.
void addPicture(RowReader& rows, std::set<std::string>& sent, Entry& entry) {
    if (!entry.app || !entry.app->screenshotSha256) return;
    if (sent.insert(*entry.app->screenshotSha256).second)
        entry.app->picture = rows.picture(*entry.app->screenshotSha256);
}

// Sends all of a catalogue, and holds no lock on it meanwhile.
void sendAll(const FileName& other, const CagedWorker::Send& send) {
    const auto catalogue = openCatalogue(other);
    requireWhole(other, *catalogue);
    RowReader rows(*catalogue);
    for (const Source& source : rows.sources()) {
        std::set<std::string> sent;  // for each source, because others may be passed over
        send(kSource + encoded(source));
        std::vector<std::string> pieces;
        const auto take = [&](Entry entry) {
            addPicture(rows, sent, entry);
            pieces.push_back(kEntry + encoded(entry));
        };
        rows.forEachEntry(rows.idsOf(source.id), take, [&] {
            for (const std::string& piece : pieces)
                send(piece);
            pieces.clear();
        });
    }
}

[[noreturn]] void throwStrange(const FileName& other) {
    throw Error(other.shown, "holds what no catalogue holds; make it again with \"qzapp index\"");
}

// Writes what the child sends.
class Merger {
public:
    Merger(const FileName& other, const SqlConnection& catalogue)
        : other_(&other), catalogue_(&catalogue), reader_(catalogue), rows_(catalogue) {
        for (const Source& source : reader_.sources())
            known_.emplace(source.uuid, source);
        result_.label = labelOf(other);
        result_.isCurrent = true;
    }

    void take(std::string_view piece) {
        const char kind = piece.empty() ? '\0' : piece.front();
        if (kind == kSource) {
            endSource();
            const auto source = decodedSource(piece.substr(1));
            if (!source) throwStrange(*other_);
            begin(*source);
        } else {
            auto entry = kind == kEntry ? decodedEntry(piece.substr(1)) : std::nullopt;
            if (!entry) throwStrange(*other_);
            if (entry->app && entry->app->picture && !isPlausible(*entry->app->picture))
                throwStrange(*other_);
            if (entry->app) cutToLimits(*entry->app);
            if (source_) put(*std::move(entry), piece.size());
        }
    }

    MergeResult end() {
        endSource();
        return std::move(result_);
    }

private:
    // At first hand, only what was merged before is passed over: what claims to be newer may come
    // from another catalogue, or from a time when a clock was wrong. At second hand, whatever is
    // older.
    static bool isPassedOver(const Source& known, const Source& sent) {
        return sent.id == kOwnSource ? known.updated == sent.updated
                                     : known.updated >= sent.updated;
    }

    // The source of which entries are coming, and its files that none has replaced so far.
    struct Current {
        Source sent;
        std::int64_t id;
        std::map<std::string, KnownFile, std::less<>> left;
        std::optional<Batch> batch;
    };

    void begin(const Source& sent) {
        const auto known = known_.find(sent.uuid);
        const bool isOurs = known != known_.end() && known->second.id == kOwnSource;
        if (isOurs && sent.id == kOwnSource) {
            throw Error(other_->shown,
                        "is this catalogue, or a copy of it; make a new one with \"qzapp index\"");
        }
        if (isOurs || (known != known_.end() && isPassedOver(known->second, sent))) return;
        result_.isCurrent = false;
        const std::string label = sent.id == kOwnSource ? labelOf(*other_) : sent.label;
        source_.emplace();
        source_->sent = sent;
        catalogue_->inTransaction(
            [&] { source_->id = rows_.putSource(sent.uuid, label.substr(0, kMostLabelBytes)); });
        for (KnownFile& file : reader_.filesBelow(source_->id, "/")) {
            const std::string path = file.path;
            source_->left.emplace(path, std::move(file));
        }
        source_->batch.emplace(*catalogue_, rows_, source_->id);
    }

    void put(Entry entry, std::size_t bytes) {
        source_->left.erase(entry.path);
        source_->batch->put(std::move(entry), bytes);
        ++result_.taken;
    }

    // Only now the source counts as merged, so that a run that is ended before is repeated.
    void endSource() {
        if (!source_) return;
        source_->batch->write();
        std::vector<KnownFile> gone;
        for (const auto& [path, file] : source_->left)
            gone.push_back(file);
        source_->batch->remove(gone);
        result_.removed += std::ssize(gone);
        catalogue_->inTransaction([&] {
            rows_.settlePictures();
            rows_.removeFolders(source_->id);
            for (const IndexedFolder& folder : source_->sent.folders)
                rows_.putFolder(source_->id, folder);
            rows_.setUpdated(source_->id, source_->sent.updated);
        });
        source_.reset();
    }

    const FileName* other_;
    const SqlConnection* catalogue_;
    RowReader reader_;
    RowWriter rows_;
    std::map<std::string, Source, std::less<>> known_;  // by uuid
    std::optional<Current> source_;                     // none while entries are passed over
    MergeResult result_;
};

}  // namespace

MergeResult mergeCatalogue(const FileName& catalogue, const FileName& other) {
    Cage cage;
    letReadCatalogue(cage, other);
    CagedWorker worker(cage, [&](const CagedWorker::Send& send) { sendAll(other, send); });
    std::optional<std::string> piece = worker.next();  // throws if it is not a catalogue
    Made made = Made::Found;
    const auto opened = openOrMakeCatalogue(catalogue, made);
    Merger merger(other, *opened);
    for (; piece; piece = worker.next())
        merger.take(*piece);
    MergeResult result = merger.end();
    result.made = made;
    return result;
}

}  // namespace qzapp
