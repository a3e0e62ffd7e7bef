#include "platform/opc/src/zip/ByteSource.hpp"

#include <algorithm>

namespace opc::zip {

std::size_t MemorySource::readAt(std::span<std::byte> buffer, std::uint64_t offset) const {
    const std::size_t start = std::min<std::uint64_t>(offset, bytes_.size());
    const auto found =
        std::span(bytes_).subspan(start).first(std::min(buffer.size(), bytes_.size() - start));
    std::copy(found.begin(), found.end(), buffer.begin());
    return found.size();
}

std::size_t FileSource::readAt(std::span<std::byte> buffer, std::uint64_t offset) const {
    return file_.readAt(buffer, offset);
}

std::uint64_t FileSource::nextData(std::uint64_t offset) const {
    return file_.nextData(offset);
}

}  // namespace opc::zip
