#pragma once

#include <foundation/Export.hpp>

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <string_view>
#include <vector>

namespace opc {

// Bytes to be read once, front to back. Failures are opc::Exception.
class PLATFORM_API InputStream {
public:
    virtual ~InputStream();
    // Fills `buffer` from the front and returns how many bytes it holds now; 0 only at the end
    // (or for an empty buffer). Bytes that fail a checksum at the end of the stream are never the
    // last ones handed out: the call that would complete them throws.
    virtual std::size_t read(std::span<std::byte> buffer) = 0;
};

// Bytes to be written once, front to back. Failures are opc::Exception.
class PLATFORM_API OutputStream {
public:
    virtual ~OutputStream();
    virtual void write(std::span<const std::byte> bytes) = 0;
    // Hands everything written so far to its destination. A stream that is destroyed without
    // flush() may lose what was written.
    virtual void flush() = 0;
};

// Reads a copy of `bytes`.
class PLATFORM_API ByteArrayInAdaptor final : public InputStream {
public:
    explicit ByteArrayInAdaptor(std::vector<std::uint8_t> bytes);
    std::size_t read(std::span<std::byte> buffer) override;

private:
    std::vector<std::uint8_t> bytes_;
    std::size_t position_ = 0;
};

// Appends to `bytes`, which must outlive it.
class PLATFORM_API ByteArrayOutAdaptor final : public OutputStream {
public:
    explicit ByteArrayOutAdaptor(std::vector<std::uint8_t>& bytes) : bytes_(&bytes) {}
    void write(std::span<const std::byte> bytes) override;
    void flush() override {}

private:
    std::vector<std::uint8_t>* bytes_;
};

// Copies a stream from its position to its end and flushes the output. A standard input stream that
// has already failed (a file that did not open) is copied as no stream at all: the output is not
// touched, so a part keeps its content. Throws opc::Exception when reading or writing fails.
class PLATFORM_API StreamHelper {
public:
    static void copyStreamToStream(InputStream& from, OutputStream& to);
    // `name` is what a failure calls the standard stream.
    static void copyStreamToStream(InputStream& from, std::ostream& to,
                                   std::string_view name = "the output stream");
    static void copyStreamToStream(std::istream& from, OutputStream& to,
                                   std::string_view name = "the input stream");
};

}  // namespace opc
