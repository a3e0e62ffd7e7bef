#pragma once

#include <opc/Streams.hpp>

#include "platform/opc/src/zip/Deflate.hpp"
#include "platform/opc/src/zip/ItemEncoder.hpp"
#include "platform/opc/src/zip/NewArchive.hpp"
#include "platform/opc/src/zip/ZipWriter.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace opc::zip {

// The file that takes an item's encoded bytes when they have become too many for memory. Destroying
// it without keep() takes the bytes back.
class Spill : public ByteSink {
public:
    // Sets `item.content` to where the bytes are.
    virtual void describe(NewItem& item) = 0;
    // Called when the item has been handed to the writer, which owns the bytes from then on.
    virtual void keep() noexcept = 0;
};

// The stream that sets one item, as ZipWriter::set() returns it. It gathers the encoded bytes in
// memory and, past 1 MiB, in a spill. flush() hands the complete item to the writer; a stream that
// is destroyed before that leaves the writer's item as it was. A call that throws makes all further
// writing fail.
class ItemOutput final : public OutputStream, private ByteSink {
public:
    ItemOutput(ZipWriter& writer, std::string name, const ItemOptions& options);
    ~ItemOutput() override;

    void write(std::span<const std::byte> bytes) override;
    void writeFrom(const Next& next) override;
    void flush() override;

private:
    enum class Progress { Open, Complete, Failed };

    void append(std::span<const std::byte> bytes) override;
    template <class Step>
    void take(Step step);
    void startSpill();
    void drain();
    void checkOpen() const;
    void refuseZip64() const;
    void complete();

    ZipWriter* writer_;
    ItemEncoder encoder_;
    NewItem item_;
    std::uint64_t encodedSize_ = 0;
    std::vector<std::byte> buffer_;  // encoded bytes that are not in the spill (yet)
    std::unique_ptr<Spill> spill_;
    Progress progress_ = Progress::Open;
};

}  // namespace opc::zip
