#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/qzapp/catalogue/Entry.hpp"
#include "tools/qzapp/catalogue/Rows.hpp"
#include "tools/qzapp/catalogue/Sqlite.hpp"

namespace qzapp {

// Collects entries of a source and writes them in batches, each as one transaction, so that other
// programs wait for moments only.
class Batch {
public:
    Batch(const SqlConnection& catalogue, RowWriter& rows, std::int64_t source)
        : catalogue_(&catalogue), rows_(&rows), source_(source) {}

    // `bytes` is about the memory that the entry takes.
    void put(Entry entry, std::size_t bytes);
    // Writes what is left.
    void write();
    // Takes out files that went, unless another run has read them since.
    void remove(const std::vector<KnownFile>& gone);

private:
    using Clock = std::chrono::steady_clock;

    const SqlConnection* catalogue_;
    RowWriter* rows_;
    std::int64_t source_;
    std::vector<Entry> entries_;
    std::size_t bytes_ = 0;
    Clock::time_point last_ = Clock::now();
};

}  // namespace qzapp
