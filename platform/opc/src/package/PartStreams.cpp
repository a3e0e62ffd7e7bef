#include "platform/opc/src/package/PartStreams.hpp"

#include "platform/opc/src/package/PackageState.hpp"
#include "platform/opc/src/zip/CompressionMethods.hpp"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <memory>
#include <span>
#include <string>

namespace opc::model {

namespace {

constexpr std::uint64_t kFirstRead = 4096;
// The most memory to ask for before anything has been read, because the size that a file claims may
// be wrong.
constexpr std::uint64_t kMostAtFirst = std::uint64_t{1} << 20;

}  // namespace

PartTooLarge::~PartTooLarge() = default;

// `take` is the caller's code and may end or destroy this stream.
void PartInputStream::readTo(const Take& take) {
    const auto stream = lease_->hold(name_);
    stream->readTo([&take, lease = lease_, name = name_](std::span<const std::byte> bytes) {
        take(bytes);
        static_cast<void>(lease->get(name));
    });
}

// `next` is the caller's code. It may end or destroy this stream: what the stream works on lives
// until that is noticed. What `next` has given before it throws is written.
void PartOutputStream::writeFrom(const Next& next) {
    const auto stream = lease_->hold(name_);
    std::exception_ptr failure;
    try {
        stream->writeFrom([&, lease = lease_, name = name_](std::span<std::byte> buffer) {
            std::size_t size = 0;
            try {
                size = next(buffer);
            } catch (...) {
                failure = std::current_exception();
                return std::size_t{0};
            }
            static_cast<void>(lease->get(name));
            if (size > buffer.size()) {
                throw Exception(name + ": the stream to copy says that it gave " +
                                std::to_string(size) + " bytes, for which there was no room");
            }
            return size;
        });
    } catch (...) {
        if (!failure) throw;  // otherwise `next` has ended the stream and then failed
    }
    if (failure) std::rethrow_exception(failure);
}

void PartOutputStream::flush() {
    OutputStream& stream = lease_->get(name_);
    stream.flush();
    // The part is alive: when it is destroyed, it revokes its leases, so that get() would have
    // thrown.
    const auto part = part_.lock();
    part->inputs.revoke();
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
