#pragma once

#include <foundation/Export.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <span>
#include <string_view>
#include <vector>

namespace opc {

// Bytes that are read once, from front to back. Failures are opc::Exception. For one thread at a
// time.
class PLATFORM_API InputStream {
public:
    virtual ~InputStream();
    // Fills `buffer` from its front and returns the number of bytes, which is 0 only at the end or
    // for an empty buffer. Content whose checksum is wrong is never handed out to its end: the call
    // that would complete it throws.
    virtual std::size_t read(std::span<std::byte> buffer) = 0;

    // Takes bytes that are valid during the call.
    using Take = std::function<void(std::span<const std::byte> bytes)>;
    // Reads to the end and hands everything to `take`, piece by piece and in order, on the calling
    // thread. The stream of a large part prepares later pieces on other threads meanwhile.
    virtual void readTo(const Take& take);
};

// Bytes that are written once, from front to back. Failures are opc::Exception. For one thread at a
// time.
class PLATFORM_API OutputStream {
public:
    virtual ~OutputStream();
    virtual void write(std::span<const std::byte> bytes) = 0;

    // Fills the buffer from its front and returns the number of bytes, which is 0 only at the end.
    using Next = std::function<std::size_t(std::span<std::byte> buffer)>;
    // Writes everything that `next` gives, and calls it on the calling thread only. The stream of a
    // large part works on earlier pieces on other threads meanwhile. What `next` throws passes; a
    // part's stream has then written what it gave before, and can be written on and flushed.
    virtual void writeFrom(const Next& next);

    // Hands everything that was written to its destination. A stream that is destroyed without
    // flush() may lose it. Whether writing can go on afterwards depends on the stream: one of a
    // part has ended.
    virtual void flush() = 0;
};

// Reads from memory. Never fails.
class PLATFORM_API ByteArrayInAdaptor final : public InputStream {
public:
    explicit ByteArrayInAdaptor(std::vector<std::uint8_t> bytes);
    std::size_t read(std::span<std::byte> buffer) override;

private:
    std::vector<std::uint8_t> bytes_;
    std::size_t position_ = 0;
};

// Writes to memory at once; flush() does nothing.
class PLATFORM_API ByteArrayOutAdaptor final : public OutputStream {
public:
    // Appends to `bytes`, which must outlive the stream.
    explicit ByteArrayOutAdaptor(std::vector<std::uint8_t>& bytes) : bytes_(&bytes) {}
    void write(std::span<const std::byte> bytes) override;
    void flush() override {}

private:
    std::vector<std::uint8_t>* bytes_;
};

// Copies a stream from its position to its end and flushes the output. Throws opc::Exception if
// reading or writing fails; what was read until then has been written. Memory does not depend on
// the size.
class PLATFORM_API StreamHelper {
public:
    static void copyStreamToStream(InputStream& from, OutputStream& to);
    // The next two copy to or from a standard stream, which messages call `name`. If a standard
    // input stream has failed before, as that of a file that could not be opened, nothing is copied
    // and the output is not flushed, so a part keeps its content.
    static void copyStreamToStream(InputStream& from, std::ostream& to,
                                   std::string_view name = "the output stream");
    static void copyStreamToStream(std::istream& from, OutputStream& to,
                                   std::string_view name = "the input stream");
};

}  // namespace opc
