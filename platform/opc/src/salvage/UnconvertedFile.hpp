#pragma once

#include "platform/opc/src/zip/ByteSource.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace opc::zip {

// A file as it was before a program took it for a text and put a carriage return in front of each
// line feed: the bytes of `source` without each carriage return that a line feed follows. It may be
// read from several threads at a time if `source` may.
class UnconvertedFile final : public ByteSource {
public:
    // Null if no such program seems to have been at work, because most line feeds have no carriage
    // return in front of them or the file has holes, which a conversion fills. Reads the file once,
    // and no further than shows that. A failure to read is a std::system_error.
    static std::shared_ptr<const UnconvertedFile> of(std::shared_ptr<const ByteSource> source);

    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const override;
    // In bytes.
    std::uint64_t size() const { return size_; }
    // Whether there are line feeds in the source that have no carriage return in front of them. A
    // conversion leaves none.
    bool hasBareFeeds() const { return hasBareFeeds_; }

private:
    UnconvertedFile() = default;

    std::shared_ptr<const ByteSource> source_;
    // The offset here of the first byte that is taken from each block of the source.
    std::vector<std::uint64_t> starts_;
    std::uint64_t size_ = 0;
    bool hasBareFeeds_ = false;
};

}  // namespace opc::zip
