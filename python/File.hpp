#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <fl/FileDescriptor.hpp>
#include <opc/Streams.hpp>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "app/FileName.hpp"
#include "app/Forms.hpp"

// What the module's classes stand for. Nothing here touches Python's objects, so all of it runs
// without the interpreter's lock, and any thread may call it at any time.
namespace qzapp::python {

// Bytes of an app, read from front to back. Once a read has failed, all later ones fail in the same
// way: a caller that tries again must not take what is missing for the end.
class Stream {
public:
    Stream(FileName file, std::unique_ptr<opc::InputStream> stream)
        : file_(std::move(file)), stream_(std::move(stream)) {}

    // Returns 0 only at the end, or for an empty buffer.
    std::size_t read(std::span<std::byte> buffer);
    // The file that holds them.
    const FileName& file() const noexcept { return file_; }

private:
    FileName file_;  // holds it open
    std::mutex mutex_;
    std::unique_ptr<opc::InputStream> stream_;
    std::exception_ptr failure_;
};

struct PartFacts {
    foundation::ustring name, contentType;
    std::uint64_t size, compressedSize;
};

// A file that was opened once: whatever its name leads to later, this very file is read. It may be
// an app, or content for one. All failures are Errors about the file.
class File {
public:
    // The file that the system knows by these bytes.
    static std::shared_ptr<File> at(const std::string& bytes) {
        return std::make_shared<File>(hold(bytes));
    }
    explicit File(FileName held) : name_(std::move(held)) {}

    const FileName& name() const noexcept { return name_; }
    Form form() const { return formOf(name_); }

    // Throws unless it is an app. The functions below do that, too.
    void requireApp();
    appserialization::AppMetadata metadata();
    appserialization::Screenshot screenshot();

    // Of a packaged app.
    std::shared_ptr<Stream> model() const;
    std::uint64_t modelSize() const;
    std::vector<PartFacts> parts() const;
    std::shared_ptr<Stream> part(const foundation::ustring& name) const;

private:
    static FileName hold(const std::string& bytes);
    appserialization::AppMetadataReader& reader();

    FileName name_;
    std::mutex mutex_;  // of the reader
    std::unique_ptr<appserialization::AppMetadataReader> reader_;
};

// Bytes that come without a file, kept in a file in memory. Messages call them "<bytes>".
class MemoryFile {
public:
    MemoryFile();
    void append(std::span<const std::byte> bytes);
    // Of an app: its form is that of its content.
    std::shared_ptr<File> app();
    // Of content for an app, which may be anything.
    std::shared_ptr<File> content();

private:
    std::shared_ptr<File> named(const foundation::ustring& name);
    void requireOpen() const;

    std::mutex mutex_;
    fl::filesystem::FileDescriptor file_;
    std::uint64_t size_ = 0;
};

}  // namespace qzapp::python
