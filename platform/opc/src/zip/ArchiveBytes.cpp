#include "platform/opc/src/zip/ArchiveBytes.hpp"

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>

namespace opc::zip {

namespace {

constexpr std::size_t kWindow = std::size_t{64} << 10;
// What is read of a header whose neighbours are far away: enough for almost any name and extra
// fields.
constexpr std::size_t kLoneHeader = 512;

// The `size` bytes from `offset` if `held`, which begins at `start`, has all of them; otherwise
// empty.
format::Bytes within(format::Bytes held, std::uint64_t start, std::uint64_t offset,
                     std::size_t size) {
    if (offset < start || offset - start > held.size()) return {};
    const auto rest = held.subspan(offset - start);
    return rest.size() < size ? format::Bytes() : rest.first(size);
}

}  // namespace

ArchiveBytes::ArchiveBytes(const fl::filesystem::FileDescriptor& file, std::uint64_t fileSize,
                           std::size_t tailSize)
    : file_(&file),
      fileSize_(fileSize),
      tailOffset_(fileSize - std::min<std::uint64_t>(fileSize, tailSize)),
      tailBytes_(std::make_unique_for_overwrite<std::byte[]>(fileSize - tailOffset_)),
      tail_(tailBytes_.get(), fileSize - tailOffset_) {
    fill(tail_, tailOffset_);
}

format::Bytes ArchiveBytes::at(std::uint64_t offset, std::size_t size, std::uint64_t nearby) {
    if (const auto held = within(tail_, tailOffset_, offset, size); !held.empty()) return held;
    if (const auto held = within(window_, windowOffset_, offset, size); !held.empty()) return held;
    const std::size_t ahead = nearby - offset < kWindow ? kWindow : kLoneHeader;
    window_.resize(std::min<std::uint64_t>(std::max(size, ahead), fileSize_ - offset));
    windowOffset_ = offset;
    fill(window_, offset);
    return format::Bytes(window_).first(size);
}

std::optional<std::uint64_t> ArchiveBytes::find(std::uint32_t signature, std::uint64_t from,
                                                std::uint64_t to) {
    constexpr std::size_t kStep = std::size_t{32} << 10;
    std::string wanted;
    format::append(wanted, signature);
    for (; to - from >= wanted.size(); from += std::min<std::uint64_t>(kStep, to - from)) {
        const std::size_t size = std::min<std::uint64_t>(kStep + wanted.size() - 1, to - from);
        const std::size_t found = format::asText(at(from, size, to)).find(wanted);
        if (found != std::string_view::npos) return from + found;
    }
    return std::nullopt;
}

void ArchiveBytes::copy(std::uint64_t offset, std::span<std::byte> target) {
    const auto held = within(tail_, tailOffset_, offset, target.size());
    if (held.empty()) return fill(target, offset);
    std::copy(held.begin(), held.end(), target.begin());
}

void ArchiveBytes::fill(std::span<std::byte> target, std::uint64_t offset) const {
    if (file_->readAt(target, offset) < target.size()) {
        throw std::system_error(EIO, std::generic_category(), "became shorter while it was read");
    }
}

}  // namespace opc::zip
