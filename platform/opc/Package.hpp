#pragma once

#include <foundation/Export.hpp>
#include <opc/Names.hpp>
#include <opc/Relationship.hpp>
#include <opc/Streams.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <cstdint>
#include <memory>
#include <vector>

namespace opc::interfaces {

enum class OpenMode : int {
    Read = 0,    // an existing package; nothing can be changed
    Create = 1,  // an empty package, which replaces any file when it is closed
    Edit = 2,    // an existing package; what is not changed is kept byte for byte
};

}  // namespace opc::interfaces

namespace opc::model {

// How a part is stored. Compression 0 stores it as it is; 1 deflates it for speed, or stores it when
// a sample shows that it does not shrink. `sizeHint` is the expected size in bytes, 0 when unknown.
class PLATFORM_API StandardPartInfo {
public:
    StandardPartInfo(int compression, std::uint64_t sizeHint);
    int compression() const noexcept { return compression_; }
    std::uint64_t sizeHint() const noexcept { return sizeHint_; }

private:
    int compression_;
    std::uint64_t sizeHint_;
};

class PackageState;

// A part of an open package. Cheap to copy; every copy is the same part. Using one after its part was
// deleted or its package closed throws opc::Exception.
class PLATFORM_API Part {
public:
    const PartName& getName() const noexcept { return name_; }
    ContentType getContentType() const;
    // Bytes when read, and as they stand in the file; both 0 for content set in this session and
    // not yet saved.
    std::uint64_t size() const;
    std::uint64_t compressedSize() const;

    // The part's content as last set. The stream stays valid when the package is closed.
    std::unique_ptr<InputStream> getInputStream() const;
    // Replaces the content: what is written becomes the part's content as a whole when the stream is
    // flushed, which ends the stream; a stream destroyed without flush() leaves the content as it was.
    // Large content goes straight to the new file; memory does not grow with it.
    std::unique_ptr<OutputStream> getOutputStream();

private:
    friend class PackageState;
    Part(std::weak_ptr<PackageState> package, PartName name);
    std::weak_ptr<PackageState> package_;
    PartName name_;
};

// An Open Packaging Conventions package in a zip file: named parts with content types, and the
// package's own relationships. open() reads and checks the zip directory, the content types and the
// package relationships; parts are read only when asked for. All operations throw opc::Exception on
// failure; those other than open() throw it on a package that is not open. One thread at a time.
class PLATFORM_API Package : public RelationshipSource {
public:
    // `physical` must outlive the package.
    explicit Package(const zippackage::ZipPhysicalPackage& physical);
    // Does not save: without close() nothing on disk has changed and nothing is left behind.
    ~Package() override;
    Package(const Package&) = delete;
    Package& operator=(const Package&) = delete;

    // Throws PackageNotFound when Read or Edit finds no file.
    void open(interfaces::OpenMode mode);
    void open(int mode) { open(static_cast<interfaces::OpenMode>(mode)); }
    // Saves what was changed, atomically and durably, and closes the file. After a failed save the
    // package is closed and the file is what it was.
    void close();

    bool hasPart(const PartName& name) const;
    Part getPart(const PartName& name) const;
    // In the order of the file; new parts last.
    std::vector<Part> getParts() const;
    // Throws when the package holds the name, or one that derives from it or that it derives from.
    // The part starts empty.
    Part createPart(const PartName& name, const ContentType& type, const StandardPartInfo& info);
    void deletePart(const PartName& name);

    std::vector<Relationship> getRelationshipsByType(const ustring& type) const override;
    std::vector<Relationship> getRelationships() const override;
    Relationship createInternalRelationship(const ustring& type, const URI& target,
                                            const ustring& id) override;
    void deleteRelationship(const ustring& id) override;

    // The name that messages use.
    const fl::filesystem::path& path() const noexcept;

private:
    const zippackage::ZipPhysicalPackage* physical_;
    std::shared_ptr<PackageState> state_;
};

// Fixed names of the packaging standard.
class PLATFORM_API PackageHelper {
public:
    static const ustring& getThumbnailRelationshipType();
    static const ustring& getCorePropertiesRelationshipType();
};

}  // namespace opc::model
