#include <opc/Streams.hpp>

#include <opc/Exception.hpp>

#include <algorithm>
#include <cerrno>
#include <istream>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

namespace opc {

namespace {

// The bytes are on the heap because the stacks of a host's threads may be small.
class Buffer {
public:
    std::span<std::byte> bytes() { return {bytes_.get(), kSize}; }
    std::span<const std::byte> first(std::size_t count) const { return {bytes_.get(), count}; }
    static constexpr std::size_t kSize = std::size_t{256} << 10;

private:
    std::unique_ptr<std::byte[]> bytes_ = std::make_unique_for_overwrite<std::byte[]>(kSize);
};

// Runs a step on a standard stream. If it returns false, or the stream is set to throw and does,
// throws opc::Exception that names the stream and, where the step left one in errno as file streams
// do, the system's reason.
template <class Step>
void asStreamFailure(const char* what, std::string_view stream, Step step) {
    errno = 0;
    try {
        if (step()) return;
    } catch (const std::ios_base::failure&) {
    }
    const int reason = errno;
    const std::string failure = what + std::string(stream);
    throw Exception(reason == 0 ? failure
                                : failure + ": " + std::generic_category().message(reason));
}

constexpr const char* kCannotWrite = "cannot write to ";

}  // namespace

InputStream::~InputStream() = default;
OutputStream::~OutputStream() = default;

ByteArrayInAdaptor::ByteArrayInAdaptor(std::vector<std::uint8_t> bytes)
    : bytes_(std::move(bytes)) {}

std::size_t ByteArrayInAdaptor::read(std::span<std::byte> buffer) {
    const std::size_t count = std::min(buffer.size(), bytes_.size() - position_);
    const auto rest = std::as_bytes(std::span(bytes_)).subspan(position_, count);
    std::copy(rest.begin(), rest.end(), buffer.begin());
    position_ += count;
    return count;
}

void ByteArrayOutAdaptor::write(std::span<const std::byte> bytes) {
    const auto* first = reinterpret_cast<const std::uint8_t*>(bytes.data());
    bytes_->insert(bytes_->end(), first, first + bytes.size());
}

void InputStream::readTo(const Take& take) {
    Buffer buffer;
    while (const std::size_t count = read(buffer.bytes()))
        take(buffer.first(count));
}

void OutputStream::writeFrom(const Next& next) {
    Buffer buffer;
    while (const std::size_t count = next(buffer.bytes()))
        write(buffer.first(count));
}

void StreamHelper::copyStreamToStream(InputStream& from, OutputStream& to) {
    to.writeFrom([&](std::span<std::byte> buffer) { return from.read(buffer); });
    to.flush();
}

void StreamHelper::copyStreamToStream(InputStream& from, std::ostream& to, std::string_view name) {
    from.readTo([&](std::span<const std::byte> bytes) {
        asStreamFailure(kCannotWrite, name, [&] {
            return bool(to.write(reinterpret_cast<const char*>(bytes.data()),
                                 static_cast<std::streamsize>(bytes.size())));
        });
    });
    asStreamFailure(kCannotWrite, name, [&] { return bool(to.flush()); });
}

void StreamHelper::copyStreamToStream(std::istream& from, OutputStream& to, std::string_view name) {
    if (from.fail()) return;
    to.writeFrom([&](std::span<std::byte> buffer) -> std::size_t {
        if (from.eof()) return 0;
        // The end of the file sets the fail bit too; only the bad bit means that bytes are missing.
        asStreamFailure("cannot read to the end of ", name, [&] {
            from.read(reinterpret_cast<char*>(buffer.data()),
                      static_cast<std::streamsize>(buffer.size()));
            return !from.bad();
        });
        return static_cast<std::size_t>(from.gcount());
    });
    to.flush();
}

}  // namespace opc
