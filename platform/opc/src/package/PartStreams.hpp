#pragma once

#include <opc/Exception.hpp>
#include <opc/Package.hpp>
#include <opc/Streams.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace opc::model {

// A stream that knows what its content is. The streams of parts are such streams, so that code
// which gets any stream can name the part in its messages.
class NamedStream {
public:
    virtual ~NamedStream() = default;
    // "file: /part".
    virtual const std::string& name() const noexcept = 0;
};

// Owns a stream of the zip layer for a stream that was handed to a caller. The caller may keep that
// stream longer than what it works on lives; the part revokes the lease then, and using the stream
// throws.
template <class Stream>
class Lease {
public:
    explicit Lease(std::shared_ptr<Stream> stream) : stream_(std::move(stream)) {}
    void revoke() noexcept { stream_.reset(); }
    // Throws opc::Exception that starts with `name` if the lease was revoked.
    Stream& get(const std::string& name) const { return *hold(name); }
    // Like get(), but the stream lives on if the lease is revoked meanwhile.
    const std::shared_ptr<Stream>& hold(const std::string& name) const {
        if (!stream_) {
            throw Exception(name +
                            ": this stream has ended: it was flushed, its part was set again "
                            "or deleted, or its package closed");
        }
        return stream_;
    }

private:
    std::shared_ptr<Stream> stream_;
};

// The leases that one part has granted and may have to revoke.
template <class Stream>
class Leases {
public:
    // Takes over a stream and returns the lease for it.
    std::shared_ptr<Lease<Stream>> grant(std::shared_ptr<Stream> stream) {
        std::erase_if(granted_, [](const auto& lease) { return lease.expired(); });
        auto lease = std::make_shared<Lease<Stream>>(std::move(stream));
        granted_.push_back(lease);
        return lease;
    }
    void revoke() noexcept {
        for (const auto& granted : granted_) {
            if (const auto lease = granted.lock()) lease->revoke();
        }
        granted_.clear();
    }

private:
    std::vector<std::weak_ptr<Lease<Stream>>> granted_;
};

// What Part::getInputStream() returns.
class PartInputStream final : public InputStream, public NamedStream {
public:
    PartInputStream(std::string name, std::shared_ptr<Lease<InputStream>> lease)
        : name_(std::move(name)), lease_(std::move(lease)) {}
    std::size_t read(std::span<std::byte> buffer) override {
        return lease_->get(name_).read(buffer);
    }
    void readTo(const Take& take) override;
    const std::string& name() const noexcept override { return name_; }

private:
    std::string name_;
    std::shared_ptr<Lease<InputStream>> lease_;
};

// What Part::getOutputStream() returns.
class PartOutputStream final : public OutputStream, public NamedStream {
public:
    PartOutputStream(std::string name, std::weak_ptr<PartEntry> part,
                     std::shared_ptr<Lease<OutputStream>> lease)
        : name_(std::move(name)), part_(std::move(part)), lease_(std::move(lease)) {}
    void write(std::span<const std::byte> bytes) override { lease_->get(name_).write(bytes); }
    void writeFrom(const Next& next) override;
    // Sets the content and ends this stream, and all input streams of the content that it replaces.
    void flush() override;
    const std::string& name() const noexcept override { return name_; }

private:
    std::string name_;
    std::weak_ptr<PartEntry> part_;
    std::shared_ptr<Lease<OutputStream>> lease_;
};

// Reads `stream` to its end. Throws PartTooLarge that starts with `name` if there are more than
// `cap` bytes. `expected` is the likely size, which saves memory and copying and may be wrong.
std::vector<std::uint8_t> readAll(InputStream& stream, std::uint64_t expected, std::uint64_t cap,
                                  const std::string& name);

}  // namespace opc::model
