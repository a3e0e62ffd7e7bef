#pragma once

#include <opc/Exception.hpp>
#include <opc/Package.hpp>
#include <opc/Streams.hpp>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace opc::model {

// What messages call the content of a stream: file and part.
class NamedStream {
public:
    virtual ~NamedStream() = default;
    virtual const std::string& name() const noexcept = 0;
};

// A stream of the zip layer on its way to a caller, who may keep it longer than what it works on
// lives. Its part takes the stream away then, and using it throws.
template <class Stream>
class Lease {
public:
    explicit Lease(std::unique_ptr<Stream> stream) : stream_(std::move(stream)) {}
    void revoke() noexcept { stream_.reset(); }
    Stream& get(const std::string& name) const {
        if (!stream_) {
            throw Exception(name +
                            ": this stream has ended: it was flushed, its part was set again "
                            "or deleted, or its package closed");
        }
        return *stream_;
    }

private:
    std::unique_ptr<Stream> stream_;
};

// The leases that one part may have to take back.
template <class Stream>
class Leases {
public:
    std::shared_ptr<Lease<Stream>> grant(std::unique_ptr<Stream> stream) {
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

class PartInputStream final : public InputStream, public NamedStream {
public:
    PartInputStream(std::string name, std::shared_ptr<Lease<InputStream>> lease)
        : name_(std::move(name)), lease_(std::move(lease)) {}
    std::size_t read(std::span<std::byte> buffer) override {
        return lease_->get(name_).read(buffer);
    }
    const std::string& name() const noexcept override { return name_; }

private:
    std::string name_;
    std::shared_ptr<Lease<InputStream>> lease_;
};

class PartOutputStream final : public OutputStream, public NamedStream {
public:
    PartOutputStream(std::string name, std::weak_ptr<PartEntry> part,
                     std::shared_ptr<Lease<OutputStream>> lease)
        : name_(std::move(name)), part_(std::move(part)), lease_(std::move(lease)) {}
    void write(std::span<const std::byte> bytes) override { lease_->get(name_).write(bytes); }
    void flush() override;
    const std::string& name() const noexcept override { return name_; }

private:
    std::string name_;
    std::weak_ptr<PartEntry> part_;
    std::shared_ptr<Lease<OutputStream>> lease_;
};

// Reads `stream` to its end. Throws PartTooLarge, naming `name`, past `cap` bytes. `expected` is how
// much room to start with.
std::vector<std::uint8_t> readAll(InputStream& stream, std::uint64_t expected, std::uint64_t cap,
                                  const std::string& name);

}  // namespace opc::model
