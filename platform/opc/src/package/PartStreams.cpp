#include "platform/opc/src/package/PartStreams.hpp"

#include "platform/opc/src/package/PackageState.hpp"
#include "platform/opc/src/zip/CompressionMethods.hpp"

#include <foundation/Threads.hpp>

#include <algorithm>
#include <cstddef>
#include <exception>
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

// Bytes of a caller, gathered so that there is work for several threads.
class Batch {
public:
    explicit Batch(std::size_t room)
        : room_(room), bytes_(std::make_unique_for_overwrite<std::byte[]>(room)) {}

    // Takes what `next` gives until the batch is full.
    void fill(const OutputStream::Next& next) {
        size_ = 0;
        try {
            std::size_t got = 0;
            do {
                got = next({bytes_.get() + size_, room_ - size_});
                size_ += got;
            } while (got > 0 && size_ < room_);
        } catch (...) {
            failure_ = std::current_exception();
        }
    }
    void writeTo(OutputStream& stream) const {
        stream.writeFrom([rest = std::span<const std::byte>(bytes_.get(), size_)](
                             std::span<std::byte> buffer) mutable {
            const auto piece = rest.first(std::min(rest.size(), buffer.size()));
            std::ranges::copy(piece, buffer.begin());
            rest = rest.subspan(piece.size());
            return piece.size();
        });
    }
    // Whether there may be more after this batch. Throws what `next` threw.
    bool isFull() const {
        if (failure_) std::rethrow_exception(failure_);
        return size_ == room_;
    }

private:
    std::size_t room_, size_ = 0;
    std::unique_ptr<std::byte[]> bytes_;
    std::exception_ptr failure_;
};

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
// writes to the file that is saved, is at work. What it has given before it throws is written.
void PartOutputStream::writeFrom(const Next& next) {
    const auto copy = [&](Batch& batch) {
        batch.fill(next);
        batch.writeTo(lease_->get(name_));
        return batch.isFull();
    };
    if (Batch first(kFirstBatch); !copy(first)) return;
    Batch batch(kBatchOfThread * foundation::threads::limit());
    while (copy(batch)) {
    }
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
