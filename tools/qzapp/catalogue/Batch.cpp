#include "tools/qzapp/catalogue/Batch.hpp"

#include <algorithm>
#include <span>
#include <utility>

namespace qzapp {
namespace {

constexpr std::size_t kMostEntries = 1000;
constexpr std::size_t kMostBytes = std::size_t{8} << 20;
// After so long a kill loses no more.
constexpr std::chrono::seconds kLongest{1};

}  // namespace

void Batch::put(Entry entry, std::size_t bytes) {
    bytes_ += bytes;
    entries_.push_back(std::move(entry));
    const auto age = Clock::now() - last_;
    if (entries_.size() >= kMostEntries || bytes_ >= kMostBytes || age >= kLongest) write();
}

void Batch::write() {
    if (!entries_.empty()) {
        catalogue_->inTransaction([&] {
            for (const Entry& entry : entries_)
                rows_->put(source_, entry);
        });
    }
    entries_.clear();
    bytes_ = 0;
    last_ = Clock::now();
}

void Batch::remove(const std::vector<KnownFile>& gone) {
    std::span<const KnownFile> left(gone);
    while (!left.empty()) {
        const auto some = left.first(std::min(kMostEntries, left.size()));
        left = left.subspan(some.size());
        catalogue_->inTransaction([&] {
            for (const KnownFile& file : some)
                rows_->removeIfAsKnown(file);
        });
    }
}

}  // namespace qzapp
