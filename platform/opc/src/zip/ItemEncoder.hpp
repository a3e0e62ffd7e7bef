#pragma once

#include <opc/Streams.hpp>
#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/Deflate.hpp"
#include "platform/opc/src/zip/SliceTable.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace opc::zip {

// Turns the content of one item into the bytes that stand in the file, stored or deflated. What
// comes out depends on the content only, not on the pieces in which it is written nor on the number
// of threads.
class ItemEncoder {
public:
    enum class Packing {
        Stored,
        Deflated,          // for content that is not empty
        IfItIsWorthwhile,  // deflated, but stored if the first part of it shrinks too little
    };

    // `deflaters` must outlive the encoder.
    ItemEncoder(Packing packing, DeflaterPool& deflaters);
    ~ItemEncoder();

    // Hands what is encoded to the sink, on the calling thread. Up to a slice waits for the next
    // call.
    void write(std::span<const std::byte> content, ByteSink& sink);
    // Writes all that `next` gives; see OutputStream::writeFrom(). Deflates on several threads.
    void writeFrom(const OutputStream::Next& next, ByteSink& sink);
    void finish(ByteSink& sink);

    // Of all that was written and handed out so far.
    std::uint64_t size() const noexcept { return size_; }
    std::uint32_t crc32() const noexcept { return crc32_; }
    // These count once the encoder is finished.
    Method method() const noexcept;
    std::vector<SliceTable::Slice> takeSlices() noexcept { return std::move(slices_); }

private:
    enum class Mode { Undecided, Deflating, Storing };

    // A slice on its way through the threads.
    struct Slot {
        std::vector<std::byte> content;
        std::vector<std::byte> deflated;
        std::uint32_t crc32 = 0;
        std::unique_ptr<Deflater> deflater;
    };

    static Mode firstMode(Packing packing) noexcept;
    void decide(bool isAll, ByteSink& sink);
    void store(const OutputStream::Next& next, ByteSink& sink);
    void deflateFrom(const OutputStream::Next& next, ByteSink& sink);
    bool fillPending(std::size_t size, const OutputStream::Next& next);
    void deflate(Slot& slot, bool isLast);
    void handOut(const Slot& slot, ByteSink& sink);
    void count(std::span<const std::byte> content);
    void release() noexcept;

    Mode mode_;
    DeflaterPool* deflaters_;
    std::vector<std::byte> pending_;  // content that is too little for a sample or a slice yet
    std::vector<Slot> slots_;
    std::vector<SliceTable::Slice> slices_;
    std::uint64_t size_ = 0;
    std::uint32_t crc32_ = 0;
};

}  // namespace opc::zip
