#pragma once

#include "platform/opc/src/zip/ItemEncoder.hpp"
#include "platform/opc/src/zip/WriterState.hpp"

namespace opc::zip {

// Where the encoded bytes of an item go that has become too large for memory. Destroying it before
// keep() takes them back.
class Spill : public ByteSink {
public:
    // Says in `item` where the content is.
    virtual void describe(NewItem& item) = 0;
    // The item is complete: nothing is to be taken back any more.
    virtual void keep() noexcept = 0;
};

// The stream that sets one item.
class ItemOutput final : public OutputStream, private ByteSink {
public:
    ItemOutput(std::shared_ptr<ZipWriter::State> writer, std::string name,
               const ItemOptions& options);
    ~ItemOutput() override;

    void write(std::span<const std::byte> bytes) override;
    void flush() override;

private:
    enum class Progress { Open, Complete, Failed };

    void append(std::span<const std::byte> bytes) override;
    void startSpill();
    void drain();
    void checkOpen() const;
    void refuseZip64() const;
    void complete();

    std::shared_ptr<ZipWriter::State> writer_;
    ItemEncoder encoder_;
    NewItem item_;
    std::uint64_t encodedSize_ = 0;
    std::vector<std::byte> buffer_;  // all of the encoded bytes, or those that the spill lacks
    std::unique_ptr<Spill> spill_;
    Progress progress_ = Progress::Open;
};

}  // namespace opc::zip
