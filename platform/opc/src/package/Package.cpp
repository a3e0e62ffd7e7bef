#include <opc/Package.hpp>

#include <foundation/Immortal.hpp>
#include <foundation/Shown.hpp>

#include <opc/PackageNames.hpp>

#include "platform/opc/src/package/PackageState.hpp"
#include "platform/opc/src/zip/ZipError.hpp"

#include <string>

namespace opc::model {

using foundation::shown;

using interfaces::OpenMode;

StandardPartInfo::StandardPartInfo(int compression, std::uint64_t /*sizeHint*/)
    : compression_(compression) {
    if (compression != 0 && compression != 1) {
        throw Exception("compression " + std::to_string(compression) +
                        " is unknown; expected 0 (stored) or 1 (deflated)");
    }
}

Part::Part(const std::shared_ptr<PartEntry>& entry) : entry_(entry), name_(entry->name) {}

std::shared_ptr<PartEntry> Part::entry() const {
    auto entry = entry_.lock();
    if (!entry) {
        throw Exception("part " + shown(name_.toString()) +
                        " was deleted, or its package is closed");
    }
    return entry;
}

ContentType Part::getContentType() const {
    return entry()->type;
}

std::uint64_t Part::size() const {
    const auto* const item = entry()->item;
    return item ? item->size : 0;
}

std::uint64_t Part::compressedSize() const {
    const auto* const item = entry()->item;
    return item ? item->compressedSize : 0;
}

std::unique_ptr<InputStream> Part::getInputStream() const {
    const auto part = entry();
    return part->package->read(*part);
}

std::unique_ptr<OutputStream> Part::getOutputStream() {
    const auto part = entry();
    return part->package->write(part);
}

Package::Package(const zippackage::ZipPhysicalPackage& physical) : physical_(&physical) {}

Package::~Package() = default;

const fl::filesystem::path& Package::path() const noexcept {
    return physical_->path();
}

PackageState& Package::state() const {
    if (!state_) throw Exception(shown(path()) + ": the package is not open");
    return *state_;
}

void Package::open(OpenMode mode) {
    const auto file = shown(path());
    if (state_) throw Exception(file + ": the package is open already");
    if (mode < OpenMode::Read || mode > OpenMode::CreateNew) {
        throw Exception(file + ": open mode " + std::to_string(int(mode)) + " is unknown");
    }
    state_ =
        zip::aboutFile(path(), [&] { return std::make_unique<PackageState>(*physical_, mode); });
}

void Package::refuseInReport() const {
    state().refuseInReport();
}

void Package::close() {
    state().refuseInReport();
    // It is open until all is done, so that it cannot be opened in the middle of the save.
    const auto reset = [](Package* package) { package->state_.reset(); };
    const std::unique_ptr<Package, decltype(reset)> closing(this, reset);
    zip::aboutFile(path(), [&] { state_->save(); });
}

bool Package::hasPart(const PartName& name) const {
    return state().findPart(name) != nullptr;
}

Part Package::getPart(const PartName& name) const {
    const auto* const part = state().findPart(name);
    if (part == nullptr) state().refuse("there is no part " + shown(name.toString()));
    return Part(*part);
}

Part Package::getTarget(const Relationship& relationship) const {
    const auto& open = state();
    const auto from = shown(names::kRelationshipsPart) + ": relationship \"" +
                      shown(relationship.getID()) + "\" ";
    const auto& target = relationship.getTargetURI();
    if (relationship.getTargetMode() == TargetMode::External) {
        open.refuse(from + "leads out of the package, to \"" + shown(target.toString()) +
                    "\"; expected the name of a part");
    }
    if (hasUntypedTarget(relationship)) {
        open.refuse(from + "targets \"" + shown(target.toString()) +
                    "\", which has no content type and so is not a part; give it one in " +
                    std::string(names::kContentTypesItem));
    }
    try {
        if (const auto* const part = open.findPart(PartName(target))) return Part(*part);
    } catch (const Exception& fault) {
        open.refuse(from + "leads nowhere: " + fault.what() + "; expected the name of a part");
    }
    open.refuse(from + "targets \"" + shown(target.toString()) +
                "\", which is not in the package; add the part or remove the relationship");
}

bool Package::hasTarget(const Relationship& relationship) const {
    const auto name = relationship.getTargetName();
    return name && hasPart(*name);
}

bool Package::hasUntypedItem(const PartName& name) const {
    return state().hasUntypedItem(name);
}

void Package::requireNoUntypedItem(const PartName& name) const {
    state().requireNoUntypedItem(name);
}

bool Package::hasUntypedTarget(const Relationship& relationship) const {
    const auto name = relationship.getTargetName();
    return name && hasUntypedItem(*name);
}

std::vector<Part> Package::getParts() const {
    std::vector<Part> parts;
    for (const auto& part : state().partsInOrder())
        parts.push_back(Part(part));
    return parts;
}

Part Package::createPart(const PartName& name, const ContentType& type,
                         const StandardPartInfo& info) {
    const auto& entry = state().createPart(name, type, info);
    try {
        return Part(entry);
    } catch (...) {
        state().deletePart(name);  // the caller has no handle for it and would not know of it
        throw;
    }
}

void Package::deletePart(const PartName& name) {
    state().deletePart(name);
}

std::vector<Relationship> Package::getRelationshipsByType(const ustring& type) const {
    return state().relationships().ofType(type);
}

std::vector<Relationship> Package::getRelationships() const {
    return state().relationships().all();
}

Relationship Package::createInternalRelationship(const ustring& type, const URI& target,
                                                 const ustring& id) {
    return state().createRelationship(type, target, id, TargetMode::Internal);
}

Relationship Package::createExternalRelationship(const ustring& type, const URI& target,
                                                 const ustring& id) {
    return state().createRelationship(type, target, id, TargetMode::External);
}

void Package::deleteRelationship(const ustring& id) {
    state().deleteRelationship(id);
}

const ustring& PackageHelper::getThumbnailRelationshipType() {
    static const foundation::Immortal<ustring> type(names::kThumbnailRelationship);
    return *type;
}

const ustring& PackageHelper::getCorePropertiesRelationshipType() {
    static const foundation::Immortal<ustring> type(names::kCorePropertiesRelationship);
    return *type;
}

}  // namespace opc::model
