#pragma once

#include <foundation/ustring.hpp>
#include <opc/Package.hpp>
#include <opc/PartName.hpp>
#include <opc/Relationship.hpp>
#include <opc/Streams.hpp>
#include <opc/ZipArchive.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include "platform/opc/src/package/ContentTypes.hpp"
#include "platform/opc/src/package/PartOrder.hpp"
#include "platform/opc/src/package/PartStreams.hpp"
#include "platform/opc/src/package/RelationshipsPart.hpp"
#include "platform/opc/src/zip/ZipWriter.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace opc::model {

// One part of an open package. The package owns it. Part and the streams of the part hold it
// weakly, which is how they notice that the part was deleted or the package closed.
struct PartEntry {
    PartEntry(PackageState& itsPackage, PartName itsName, ContentType itsType,
              const StandardPartInfo& itsInfo)
        : package(&itsPackage), name(std::move(itsName)), type(std::move(itsType)), info(itsInfo) {}
    PartEntry(const PartEntry&) = delete;
    PartEntry& operator=(const PartEntry&) = delete;
    ~PartEntry() { revokeStreams(); }

    // Ends all streams whose content may change or go away.
    void revokeStreams() noexcept {
        inputs.revoke();
        outputs.revoke();
    }

    PackageState* package;
    PartName name;
    ContentType type;
    StandardPartInfo info;
    std::string itemName;                // in the zip file
    const zip::ZipItem* item = nullptr;  // null if the content was set since the package was opened
    std::uint64_t order = 0;             // in the file; new parts come last
    Leases<InputStream> inputs;          // only of content that was set
    Leases<OutputStream> outputs;
};

// Everything that a package has while it is open: the archive, the two tables, the parts, and the
// writer that collects the changes. Made by Package::open() and destroyed by Package::close().
// Errors are opc::Exception, or std::system_error of the file system, which Package translates. For
// one thread.
class PackageState {
public:
    // Reads and checks the package, except in the modes that create one. `physical` must outlive
    // the state.
    PackageState(const zippackage::ZipPhysicalPackage& physical, interfaces::OpenMode mode);
    PackageState(const PackageState&) = delete;
    PackageState& operator=(const PackageState&) = delete;

    // Writes the changes, if the package may be changed and was. Nothing but destroying the state
    // may follow, also if it throws.
    void save();

    // Throws if the package is open for a change and a foundation::SaveWatch reports on it.
    void refuseInReport() const;

    // The part with this name, or null. The pointer is valid until the part is deleted.
    const std::shared_ptr<PartEntry>* findPart(const PartName& name) const;
    std::vector<std::shared_ptr<PartEntry>> partsInOrder() const;
    // The functions below that change something throw if the package is open for reading.
    const std::shared_ptr<PartEntry>& createPart(const PartName& name, const ContentType& type,
                                                 const StandardPartInfo& info);
    void deletePart(const PartName& name);
    bool hasUntypedItem(const PartName& name) const { return untyped_.contains(name.key()); }
    void requireNoUntypedItem(const PartName& name) const;

    const RelationshipsPart& relationships() const noexcept { return relationships_; }
    Relationship createRelationship(const ustring& type, const URI& target, const ustring& id,
                                    TargetMode mode);
    void deleteRelationship(const ustring& id);

    // Streams as Part describes them.
    std::unique_ptr<InputStream> read(PartEntry& part) const;
    std::unique_ptr<OutputStream> write(const std::shared_ptr<PartEntry>& part);

    // "file: /part", for messages.
    std::string where(const PartName& name) const;
    // Throws opc::Exception with "file: text".
    [[noreturn]] void refuse(const std::string& text) const;

private:
    void load();
    void loadTypes();
    void loadItem(const zip::ZipItem& item);
    void loadRelationships();
    std::vector<std::uint8_t> readItem(const zip::ZipItem& item, const std::string& name) const;

    void requireWritable() const;
    void requireFree(const PartName& name, const ContentType& type) const;
    // A part whose name derives from `name`, or the other way round; null if there is none.
    const PartEntry* relative(const PartName& name) const;
    const std::shared_ptr<PartEntry>& insert(const PartName& name, const ContentType& type,
                                             const StandardPartInfo& info, std::string itemName);
    void setTable(const std::string& name, const std::string& content);
    void saveRelationships();

    const zippackage::ZipPhysicalPackage* physical_;
    interfaces::OpenMode mode_;
    std::string file_;  // for messages
    std::shared_ptr<const zip::ZipArchive> archive_;
    std::shared_ptr<zip::ZipWriter> writer_;  // null if the package is open for reading
    std::string typesItem_;                   // the name of the item with the content types
    // The tables, and how they were when the package was opened: only a changed table is written.
    ContentTypes types_, loadedTypes_;
    RelationshipsPart relationships_, loadedRelationships_;
    // Keys of the names of items that could be parts but have no type.
    std::set<std::string> untyped_;
    std::uint64_t nextOrder_ = 0;
    // The last member, so that parts are destroyed first: they end their streams, which work on the
    // writer and the archive.
    std::map<std::string, std::shared_ptr<PartEntry>, PartOrder> parts_;
};

}  // namespace opc::model
