#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/Deflater.hpp"

#include <cstdint>
#include <memory>
#include <vector>

namespace opc::zip {

// Turns the content of an item into the bytes that stand in the file: deflated, or as they are when
// they are not to be deflated or the first part of them shrinks too little.
class ItemEncoder {
public:
    ItemEncoder(bool deflate, std::shared_ptr<DeflaterPool> deflaters);
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
    std::shared_ptr<DeflaterPool> deflaters_;
    std::unique_ptr<Deflater> deflater_;
    std::uint64_t size_ = 0;
    std::uint32_t crc32_ = 0;
};

}  // namespace opc::zip
