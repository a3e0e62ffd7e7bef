#include "platform/opc/src/package/PartStreams.hpp"

#include "platform/opc/src/package/PackageState.hpp"
#include "platform/opc/src/zip/CompressionMethods.hpp"

#include <foundation/Threads.hpp>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>

namespace opc::model {

namespace {

constexpr std::uint64_t kFirstRead = 4096;
// The most memory to ask for before anything has been read, because the size that a file claims may
// be wrong.
constexpr std::uint64_t kMostAtFirst = std::uint64_t{1} << 20;

// What is taken from a caller at a time: little at first, because most parts are small, and then enough
// for all threads.
constexpr std::size_t kFirstBatch = std::size_t{256} << 10;
constexpr std::size_t kBatchOfThread = std::size_t{3} << 20;

// Fills the buffer as far as there is something, and returns how much that was.
std::size_t fill(std::span<std::byte> buffer, const OutputStream::Next& next) {
    std::size_t size = 0;
    while (size < buffer.size()) {
        const std::size_t got = next(buffer.subspan(size));
        if (got == 0) break;
        size += got;
    }
    return size;
}

}  // namespace

PartTooLarge::~PartTooLarge() = default;

// `take` is the caller's code and may end this stream.
void PartInputStream::readTo(const Take& take) {
    const auto stream = lease_->hold(name_);
    stream->readTo([&](std::span<const std::byte> bytes) {
        take(bytes);
        static_cast<void>(lease_->get(name_));
    });
}

// `next` is the caller's code and may end this stream, so it is not called while the stream below, which
// writes to the file that is saved, is at work.
void PartOutputStream::writeFrom(const Next& next) {
    std::size_t room = kFirstBatch;
    auto batch = std::make_unique_for_overwrite<std::byte[]>(room);
    while (true) {
        const std::size_t size = fill({batch.get(), room}, next);
        lease_->get(name_).writeFrom([rest = std::span<const std::byte>(batch.get(), size)](
                                         std::span<std::byte> buffer) mutable {
            const auto piece = rest.first(std::min(rest.size(), buffer.size()));
            std::ranges::copy(piece, buffer.begin());
            rest = rest.subspan(piece.size());
            return piece.size();
        });
        if (size < room) return;
        if (room > kFirstBatch) continue;
        room = kBatchOfThread * foundation::threads::limit();
        batch = std::make_unique_for_overwrite<std::byte[]>(room);
    }
}

void PartOutputStream::flush() {
    OutputStream& stream = lease_->get(name_);
    // The part is alive: when it is destroyed, it revokes its leases, so that get() would have
    // thrown.
    const auto part = part_.lock();
    part->inputs.revoke();
    stream.flush();
    lease_->revoke();
    part->item = nullptr;
}

std::vector<std::uint8_t> readAll(InputStream& stream, std::uint64_t expected, std::uint64_t cap,
                                  const std::string& name) {
    std::vector<std::uint8_t> bytes(std::min(std::clamp(expected, kFirstRead, kMostAtFirst), cap) +
                                    1);
    std::size_t size = 0;
    while (const auto count = stream.read(std::as_writable_bytes(std::span(bytes).subspan(size)))) {
        size += count;
        if (size > cap) {
            throw PartTooLarge(name + ": larger than the " + std::to_string(cap) +
                               " bytes that can be read");
        }
        // Doubles the room, but does not exceed the expected size before it has been reached.
        if (size == bytes.size()) {
            const auto most = size < expected ? expected : cap;
            bytes.resize(std::min<std::uint64_t>(2 * size, most + 1));
        }
    }
    bytes.resize(size);
    return bytes;
}

std::vector<std::uint8_t> readAll(const Part& part, std::uint64_t cap) {
    const auto stream = part.getInputStream();
    const auto& name = dynamic_cast<const NamedStream&>(*stream).name();
    const auto size = part.size();
    if (size > cap) {
        throw PartTooLarge(name + ": its " + std::to_string(size) + " bytes are more than the " +
                           std::to_string(cap) + " that can be read");
    }
    const auto stored = part.compressedSize();
    const auto possible = stored > cap / zip::worstRatio() ? cap : stored * zip::worstRatio();
    return readAll(*stream, std::min(size, possible), cap, name);
}

}  // namespace opc::model
