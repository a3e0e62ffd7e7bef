#include "platform/opc/src/salvage/UnconvertedFile.hpp"

#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace opc::zip {

namespace {

constexpr std::byte kFeed{'\n'};
// Small, because each read begins at the start of a block, and those of headers are short.
constexpr std::size_t kBlock = 4096;

// Reads `count` bytes from `offset`, or up to the end, into `bytes`, and takes out each carriage
// return that a line feed follows. Returns how many bytes were read.
std::size_t readWithoutReturns(const ByteSource& source, std::uint64_t offset, std::size_t count,
                               std::vector<std::byte>& bytes) {
    bytes.resize(count + 1);  // with the byte that follows the last one
    const std::size_t got = source.readAt(bytes, offset), taken = std::min(got, count);
    const std::string_view text = format::asText(bytes).substr(0, got);
    std::size_t kept = 0;
    for (std::size_t from = 0; from < taken;) {
        const std::size_t to = std::min(text.find("\r\n", from), taken);
        std::copy(bytes.data() + from, bytes.data() + to, bytes.data() + kept);
        kept += to - from;
        from = to + 1;
    }
    bytes.resize(kept);
    return taken;
}

}  // namespace

std::shared_ptr<const UnconvertedFile> UnconvertedFile::of(
    std::shared_ptr<const ByteSource> source) {
    const std::shared_ptr<UnconvertedFile> file(new UnconvertedFile);
    std::vector<std::byte> bytes;
    std::uint64_t feeds = 0, added = 0;
    for (std::uint64_t at = 0; source->nextData(at) == at; at += kBlock) {
        const std::size_t taken = readWithoutReturns(*source, at, kBlock, bytes);
        feeds += static_cast<std::uint64_t>(std::ranges::count(bytes, kFeed));
        added += taken - bytes.size();
        if (2 * added < feeds) return nullptr;
        file->starts_.push_back(file->size_);
        file->size_ += bytes.size();
        if (taken == kBlock) continue;
        if (added == 0) return nullptr;
        file->source_ = std::move(source);
        file->hasBareFeeds_ = added < feeds;
        return file;
    }
    return nullptr;
}

std::size_t UnconvertedFile::readAt(std::span<std::byte> buffer, std::uint64_t offset) const {
    std::vector<std::byte> bytes;
    std::size_t filled = 0;
    while (filled < buffer.size() && offset < size_) {
        const auto block = std::prev(std::ranges::upper_bound(starts_, offset));
        const std::size_t skipped = offset - *block, wanted = buffer.size() - filled;
        const auto at = static_cast<std::uint64_t>(block - starts_.begin()) * kBlock;
        readWithoutReturns(*source_, at, (skipped + wanted + kBlock) / kBlock * kBlock, bytes);
        const std::size_t got = std::min(wanted, bytes.size() - std::min(skipped, bytes.size()));
        if (got == 0) break;  // the file is shorter now
        std::copy_n(bytes.data() + skipped, got, buffer.data() + filled);
        filled += got;
        offset += got;
    }
    return filled;
}

}  // namespace opc::zip
