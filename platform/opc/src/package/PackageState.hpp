#pragma once

#include <opc/Package.hpp>
#include <opc/ZipArchive.hpp>

#include "platform/opc/src/package/ContentTypes.hpp"
#include "platform/opc/src/package/PartOrder.hpp"
#include "platform/opc/src/package/PartStreams.hpp"
#include "platform/opc/src/package/RelationshipsPart.hpp"
#include "platform/opc/src/zip/ZipWriter.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace opc::model {

// One part of an open package. Its package owns it; whoever holds it weakly learns so that the part
// was deleted or the package closed.
struct PartEntry {
    PartEntry(PackageState& itsPackage, PartName itsName, ContentType itsType,
              const StandardPartInfo& itsInfo)
        : package(&itsPackage), name(std::move(itsName)), type(std::move(itsType)), info(itsInfo) {}
    PartEntry(const PartEntry&) = delete;
    PartEntry& operator=(const PartEntry&) = delete;
    ~PartEntry() { revokeStreams(); }

    void revokeStreams() noexcept {
        inputs.revoke();
        outputs.revoke();
    }

    PackageState* package;
    PartName name;
    ContentType type;
    StandardPartInfo info;
    std::string itemName;                // in the zip file
    const zip::ZipItem* item = nullptr;  // null when the content was set in this session
    std::uint64_t order = 0;
    Leases<InputStream> inputs;  // of content set in this session
    Leases<OutputStream> outputs;
};

// Everything that a package has while it is open.
class PackageState {
public:
    PackageState(const zippackage::ZipPhysicalPackage& physical, interfaces::OpenMode mode);
    PackageState(const PackageState&) = delete;
    PackageState& operator=(const PackageState&) = delete;

    // Writes what was changed. The state is spent afterwards, also when it throws.
    void save();

    const std::shared_ptr<PartEntry>* findPart(const PartName& name) const;
    std::vector<std::shared_ptr<PartEntry>> partsInOrder() const;
    const std::shared_ptr<PartEntry>& createPart(const PartName& name, const ContentType& type,
                                                 const StandardPartInfo& info);
    void deletePart(const PartName& name);
    bool hasUntypedItem(const PartName& name) const { return untyped_.contains(name.key()); }
    void requireNoUntypedItem(const PartName& name) const;

    const RelationshipsPart& relationships() const noexcept { return relationships_; }
    Relationship createRelationship(const ustring& type, const URI& target, const ustring& id,
                                    TargetMode mode);
    void deleteRelationship(const ustring& id);

    std::unique_ptr<InputStream> read(PartEntry& part) const;
    std::unique_ptr<OutputStream> write(const std::shared_ptr<PartEntry>& part);

    // "file: /part", for messages.
    std::string where(const PartName& name) const;
    [[noreturn]] void refuse(const std::string& text) const;

private:
    void load();
    void loadTypes();
    void loadItem(const zip::ZipItem& item);
    void loadRelationships();
    std::vector<std::uint8_t> readItem(const zip::ZipItem& item, const std::string& name) const;

    void requireWritable() const;
    void requireFree(const PartName& name, const ContentType& type) const;
    // A part that derives from `name`, or that it derives from; null when there is none.
    const PartEntry* relative(const PartName& name) const;
    const std::shared_ptr<PartEntry>& insert(const PartName& name, const ContentType& type,
                                             const StandardPartInfo& info, std::string itemName);
    void setTable(const std::string& name, const std::string& content);
    void saveRelationships();

    const zippackage::ZipPhysicalPackage* physical_;
    interfaces::OpenMode mode_;
    std::string file_;  // for messages
    std::shared_ptr<const zip::ZipArchive> archive_;
    std::unique_ptr<zip::ZipWriter> writer_;
    std::string typesItem_;
    ContentTypes types_, loadedTypes_;
    RelationshipsPart relationships_, loadedRelationships_;
    // Items that could be parts but have no type, by part name key.
    std::unordered_set<std::string> untyped_;
    std::uint64_t nextOrder_ = 0;
    // Destroyed before the writer and the archive, which the streams of parts work on.
    std::map<std::string, std::shared_ptr<PartEntry>, PartOrder> parts_;
};

}  // namespace opc::model
