#pragma once

#include <foundation/Export.hpp>
#include <opc/Exception.hpp>
#include <opc/Names.hpp>
#include <opc/Relationship.hpp>
#include <opc/Streams.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <cstdint>
#include <memory>
#include <vector>

namespace opc::interfaces {

enum class OpenMode : int {
    Read = 0,       // an existing package; nothing can be changed
    Create = 1,     // an empty package, which replaces any file when it is closed
    Edit = 2,       // an existing package; what is not changed is kept byte for byte
    CreateNew = 3,  // an empty package, for a name that no file has when it is opened and closed
};

}  // namespace opc::interfaces

namespace opc::model {

// How a part is stored. Compression 0 stores it as it is; 1 deflates it for speed, or stores it when a
// sample shows that it shrinks by too little to be worth inflating. `sizeHint` is the expected size in
// bytes, 0 when unknown; how a part is stored does not depend on it.
class PLATFORM_API StandardPartInfo {
public:
    // Throws opc::Exception for any other compression.
    StandardPartInfo(int compression, std::uint64_t sizeHint);
    int compression() const noexcept { return compression_; }

private:
    int compression_;
};

class PackageState;
struct PartEntry;

// A part of an open package. Cheap to copy; every copy is the same part. Using one after its part was
// deleted or its package closed throws opc::Exception, also when a part of that name exists again.
class PLATFORM_API Part {
public:
    const PartName& getName() const noexcept { return name_; }
    ContentType getContentType() const;
    // Bytes when read, and as they stand in the file; both 0 for content set in this session and
    // not yet saved.
    std::uint64_t size() const;
    std::uint64_t compressedSize() const;

    // The part's content as last set. A stream of what stands in the file stays valid whatever happens
    // to the package; one of content set in this session throws opc::Exception once the content is set
    // again, the part deleted or the package closed.
    std::unique_ptr<InputStream> getInputStream() const;
    // Replaces the content: what is written becomes the part's content as a whole when the stream is
    // flushed, which ends the stream; a stream destroyed without flush(), or not flushed when the
    // package is closed, leaves the content as it was. Large content goes straight to the new file;
    // memory does not grow with it.
    std::unique_ptr<OutputStream> getOutputStream();

private:
    friend class Package;
    explicit Part(const std::shared_ptr<PartEntry>& entry);
    std::shared_ptr<PartEntry> entry() const;
    std::weak_ptr<PartEntry> entry_;
    PartName name_;
};

// The part is larger than its reader takes.
class PLATFORM_API PartTooLarge : public Exception {
public:
    using Exception::Exception;
    ~PartTooLarge() override;
};

// The whole content of a part. Throws PartTooLarge past `cap` bytes, and allocates no more than the
// bytes in the file can inflate to, whatever size it claims.
PLATFORM_API std::vector<std::uint8_t> readAll(const Part& part, std::uint64_t cap);

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
    // What a relationship of the package leads to; throws when that is no part of it.
    Part getTarget(const Relationship& relationship) const;
    bool hasTarget(const Relationship& relationship) const;
    // In the order of the file; new parts last.
    std::vector<Part> getParts() const;
    // Items that have the name of a part but no content type are no parts. They stay as they are, and
    // nothing but their name can be known here.
    bool hasUntypedItem(const PartName& name) const;
    void requireNoUntypedItem(const PartName& name) const;
    // Whether it leads to such an item.
    bool hasUntypedTarget(const Relationship& relationship) const;
    // Throws when the package holds the name, as a part or as an item without a type, or a part whose
    // name derives from it or that it derives from. The part starts empty.
    Part createPart(const PartName& name, const ContentType& type, const StandardPartInfo& info);
    // Relationships that lead to the part stay, and so does the part with those that start from it.
    // Throws when there is no such part, and for the package's own relationships part.
    void deletePart(const PartName& name);

    std::vector<Relationship> getRelationshipsByType(const ustring& type) const override;
    std::vector<Relationship> getRelationships() const override;
    Relationship createInternalRelationship(const ustring& type, const URI& target,
                                            const ustring& id) override;
    // The same for a target outside the package, which is never followed.
    Relationship createExternalRelationship(const ustring& type, const URI& target,
                                            const ustring& id);
    void deleteRelationship(const ustring& id) override;

    // The name that messages use.
    const fl::filesystem::path& path() const noexcept;

private:
    PackageState& state() const;

    const zippackage::ZipPhysicalPackage* physical_;
    std::unique_ptr<PackageState> state_;  // null while not open
};

// Fixed names of the packaging standard.
class PLATFORM_API PackageHelper {
public:
    static const ustring& getThumbnailRelationshipType();
    static const ustring& getCorePropertiesRelationshipType();
};

}  // namespace opc::model
