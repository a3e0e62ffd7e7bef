#pragma once

#include "platform/opc/src/zip/Deflate.hpp"
#include "platform/opc/src/zip/ZipWriter.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace opc::zip {

// Turns the content of an item into the bytes that stand in the file: deflated, or as they are when
// they are not to be deflated or the first part of them shrinks too little.
class ItemEncoder {
public:
    ItemEncoder(bool deflate, DeflaterPool& deflaters);
    ~ItemEncoder();

    void write(std::span<const std::byte> bytes, ByteSink& sink);
    void finish(ByteSink& sink);

    // Of all that was written so far; the method counts once the encoder is finished.
    std::uint64_t size() const noexcept { return size_; }
    std::uint32_t crc32() const noexcept { return crc32_; }
    Method method() const noexcept;

private:
    enum class Mode { Sampling, Deflating, Storing };

    void encode(std::span<const std::byte> bytes, ByteSink& sink);
    void decide(bool isAll, ByteSink& sink);

    Mode mode_;
    std::vector<std::byte> sample_;
    DeflaterPool* deflaters_;
    std::unique_ptr<Deflater> deflater_;
    std::uint64_t size_ = 0;
    std::uint32_t crc32_ = 0;
};

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
    ItemOutput(ZipWriter& writer, std::string name, const ItemOptions& options);
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

    ZipWriter* writer_;
    ItemEncoder encoder_;
    NewItem item_;
    std::uint64_t encodedSize_ = 0;
    std::vector<std::byte> buffer_;  // all of the encoded bytes, or those that the spill lacks
    std::unique_ptr<Spill> spill_;
    Progress progress_ = Progress::Open;
};

}  // namespace opc::zip
