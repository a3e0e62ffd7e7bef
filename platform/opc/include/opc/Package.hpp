#pragma once

#include <fl/filesystem.hpp>
#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <opc/Exception.hpp>
#include <opc/PartName.hpp>
#include <opc/Relationship.hpp>
#include <opc/Streams.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <cstdint>
#include <memory>
#include <vector>

namespace opc::interfaces {

// What Package::open() starts with and what Package::close() may do to the file.
enum class OpenMode : int {
    Read = 0,       // an existing package that cannot be changed
    Create = 1,     // an empty package, which replaces a file of this name when it is closed
    Edit = 2,       // an existing package; what is not changed is kept byte for byte
    CreateNew = 3,  // an empty package; open() and close() fail if a file has the name then
};

}  // namespace opc::interfaces

namespace opc::model {

// How a part is stored. Compression 0 stores it as it is. Compression 1 deflates it, fast rather
// than small, and stores it anyway if a sample shows that it would shrink too little to be worth
// inflating.
class PLATFORM_API StandardPartInfo {
public:
    // `sizeHint` is the expected size in bytes, or 0 if it is unknown; it is not used at present.
    // Throws opc::Exception for a compression other than 0 and 1.
    StandardPartInfo(int compression, std::uint64_t sizeHint);
    int compression() const noexcept { return compression_; }

private:
    int compression_;
};

class PackageState;
struct PartEntry;

// A handle for a part of an open package. Cheap to copy; every copy stands for the same part. Once
// the part is deleted or its package closed, every function but getName() throws opc::Exception,
// even if a new part of that name exists. Use it, and its streams, from the package's thread.
class PLATFORM_API Part {
public:
    const PartName& getName() const noexcept { return name_; }
    ContentType getContentType() const;
    // The number of bytes of the content and of its data in the file. Both are 0 for content that
    // was set since the package was opened: it is not in the file yet.
    std::uint64_t size() const;
    std::uint64_t compressedSize() const;

    // Opens the current content for reading. A stream of content in the file stays valid whatever
    // happens to the package. A stream of content that was set since the package was opened throws
    // opc::Exception once the content is set again, the part deleted, or the package closed.
    std::unique_ptr<InputStream> getInputStream() const;
    // Opens a stream that replaces the content as a whole. flush() sets what was written as the
    // content and ends the stream. A stream that is destroyed, or whose package is closed, before
    // flush() leaves the content as it was. Large content goes straight to the new file, so memory
    // does not grow with it. Throws opc::Exception in a package that is open for reading, and for
    // the package's relationships.
    std::unique_ptr<OutputStream> getOutputStream();

private:
    friend class Package;
    explicit Part(const std::shared_ptr<PartEntry>& entry);
    std::shared_ptr<PartEntry> entry() const;
    std::weak_ptr<PartEntry> entry_;
    PartName name_;
};

// Thrown if a part is larger than its reader accepts.
class PLATFORM_API PartTooLarge : public Exception {
public:
    using Exception::Exception;
    ~PartTooLarge() override;
};

// Returns the whole content of a part. Throws PartTooLarge if it has more than `cap` bytes.
// Allocates no more than the data in the file can inflate to, whatever size the file claims.
PLATFORM_API std::vector<std::uint8_t> readAll(const Part& part, std::uint64_t cap);

// An Open Packaging Conventions package in a zip file: named parts with content types, and the
// package's own relationships. open() reads and checks the zip directory, the content types and the
// package's relationships; a part is read only when somebody asks for it. Changes are collected
// until close(), which saves them. A package can be opened again after close().
//
// Failures are opc::Exception, and every function but open() and path() throws it while the package
// is not open. Use a package, its parts and their streams from one thread at a time; packages are
// independent of each other, unless they share a ZipPhysicalPackage.
class PLATFORM_API Package : public RelationshipSource {
public:
    // `physical` must outlive the package.
    explicit Package(const zippackage::ZipPhysicalPackage& physical);
    // Does not save. Without close(), nothing on disk has changed and nothing is left behind.
    ~Package() override;
    Package(const Package&) = delete;
    Package& operator=(const Package&) = delete;

    // Throws PackageNotFound if there is no file in mode Read or Edit, and opc::Exception if the
    // file is not a package, breaks a rule or cannot be read, or if the package is open already.
    // The package is then not open.
    void open(interfaces::OpenMode mode);
    void open(int mode) { open(static_cast<interfaces::OpenMode>(mode)); }
    // Saves the changes and closes the package. The new file replaces the old one in one step, and
    // is on the disk when close() returns; without changes, an existing file is not touched. If
    // saving fails, the package is closed too, its changes are lost, and the file is what it was.
    void close();
    // Throws as every change and close() do while a foundation::SaveWatch reports on a change of
    // this package, or on its save.
    void refuseInReport() const;

    bool hasPart(const PartName& name) const;
    // Throws if there is no such part.
    Part getPart(const PartName& name) const;
    // The part that a relationship of this package leads to. Throws if the relationship is external
    // or its target is not a part of the package.
    Part getTarget(const Relationship& relationship) const;
    bool hasTarget(const Relationship& relationship) const;
    // All parts in the order of the file, with new parts last. The part with the package's
    // relationships is one of them if it is in the file.
    std::vector<Part> getParts() const;

    // An untyped item has the name of a part but no content type, so it is not a part. A save keeps
    // it as it is; nothing but its name is known here.
    bool hasUntypedItem(const PartName& name) const;
    // Throws if there is an untyped item of this name.
    void requireNoUntypedItem(const PartName& name) const;
    // Whether a relationship of this package leads to an untyped item.
    bool hasUntypedTarget(const Relationship& relationship) const;

    // Creates an empty part. Throws if the package has a part or an untyped item of this name, or a
    // part from whose name this one derives, or the other way round ("/a.xml" and "/a.xml/b").
    Part createPart(const PartName& name, const ContentType& type, const StandardPartInfo& info);
    // Deletes a part. Relationships to the part stay, and so does the part that holds its own
    // relationships. Throws if there is no such part, and for the package's own relationships.
    void deletePart(const PartName& name);

    // As RelationshipSource describes them. createInternalRelationship() and deleteRelationship()
    // throw if the package is open for reading.
    std::vector<Relationship> getRelationshipsByType(const ustring& type) const override;
    std::vector<Relationship> getRelationships() const override;
    Relationship createInternalRelationship(const ustring& type, const URI& target,
                                            const ustring& id) override;
    // Like createInternalRelationship(), for a target outside the package, which is never followed.
    Relationship createExternalRelationship(const ustring& type, const URI& target,
                                            const ustring& id);
    void deleteRelationship(const ustring& id) override;

    // The absolute path of the file, by which messages name the package.
    const fl::filesystem::path& path() const noexcept;

private:
    PackageState& state() const;

    const zippackage::ZipPhysicalPackage* physical_;
    std::unique_ptr<PackageState> state_;  // null while not open
};

// Relationship types of the packaging standard. The strings live as long as the program.
class PLATFORM_API PackageHelper {
public:
    static const ustring& getThumbnailRelationshipType();
    static const ustring& getCorePropertiesRelationshipType();
};

}  // namespace opc::model
