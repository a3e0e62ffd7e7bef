#include "platform/opc/src/package/PackageState.hpp"

#include <opc/Exception.hpp>

#include <foundation/Shown.hpp>

#include <fl/ReplacementFile.hpp>
#include <opc/PackageNames.hpp>

#include "platform/opc/src/Ascii.hpp"
#include "platform/opc/src/xml/XmlReader.hpp"

#include <algorithm>
#include <iterator>
#include <span>
#include <string_view>
#include <utility>

namespace opc::model {

using foundation::shown;

using interfaces::OpenMode;
using names::isRelationshipsName;
using names::itemNameOf;

namespace {

std::string_view asText(const std::vector<std::uint8_t>& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Whether an item is a piece of a part, such as "part/[0].piece". Some readers put such parts
// together.
bool isPiece(std::string_view item) {
    const std::string last = ascii::lowered(item.substr(item.find_last_of("/\\") + 1));
    return last.starts_with('[') && (last.ends_with("].piece") || last.ends_with("].last.piece"));
}

bool isPackageRelationships(const PartName& name) {
    return name == names::packageRelationships();
}

}  // namespace

PackageState::PackageState(const zippackage::ZipPhysicalPackage& physical, OpenMode mode)
    : physical_(&physical), mode_(mode), file_(shown(physical.path())) {
    if (mode == OpenMode::Create || mode == OpenMode::CreateNew) {
        typesItem_ = names::kContentTypesItem;
        types_ = ContentTypes::initial();
    } else {
        load();
    }
    if (mode == OpenMode::Read) return;
    loadedTypes_ = types_;
    loadedRelationships_ = relationships_;
    writer_ = std::make_shared<zip::ZipWriter>(physical.path(), archive_, physical.allowsZip64());
    // After the writer has looked at the file, so that it notices every later change.
    physical.requireNoOtherFile();
    if (mode == OpenMode::CreateNew && writer_->replacesFile()) {
        refuse(fl::filesystem::kChangedMeanwhile);
    }
}

void PackageState::load() {
    archive_ = physical_->openArchive();
    loadTypes();
    // In name order, which is the order of parts_, so every insertion is at the end.
    for (const auto* const item : archive_->itemsByName())
        loadItem(*item);
    nextOrder_ = archive_->items().size();
    loadRelationships();
}

void PackageState::loadTypes() {
    const auto& items = archive_->items();
    const auto found = std::ranges::find_if(
        items, [](const zip::ZipItem& item) { return names::isContentTypesItem(item.name); });
    if (found == items.end()) {
        refuse("not a package: the zip file holds no \"" + std::string(names::kContentTypesItem) +
               "\"; choose a packaged app file");
    }
    typesItem_ = found->name;
    const auto name = file_ + ": " + typesItem_;
    types_ = ContentTypes::parse(asText(readItem(*found, name)), name);
}

void PackageState::loadItem(const zip::ZipItem& item) {
    if (isPiece(item.name)) {
        refuse(shown(item.displayName()) +
               ": is a piece of a part, which is not supported; save the package with parts in one "
               "piece");
    }
    const auto name = names::partNameOf(item.name);
    if (!name) return;
    const auto* const type = types_.find(*name);
    if (type == nullptr) {
        untyped_.insert(name->key());
        return;
    }
    if (!parts_.empty() && derives(name->key(), parts_.rbegin()->first)) {
        refuse("part names \"" + shown(parts_.rbegin()->second->name.toString()) + "\" and \"" +
               shown(name->toString()) + "\" derive from each other; rename one of the parts");
    }
    const auto& part = insert(*name, *type, StandardPartInfo(1, 0), item.name);
    part->item = &item;
    part->order = static_cast<std::uint64_t>(&item - archive_->items().data());
}

void PackageState::loadRelationships() {
    const PartName& name = names::packageRelationships();
    const auto* const part = findPart(name);
    const bool typed = part != nullptr && (*part)->type == names::relationshipsType();
    if (!typed && (part != nullptr || untyped_.contains(name.key()))) {
        refuse(shown(name.toString()) + " has the content type \"" +
               (part ? shown((*part)->type.toString()) : "") + "\"; expected \"" +
               shown(names::kRelationshipsType) + "\"");
    }
    if (typed) {
        const auto document = readItem(*(*part)->item, where(name));
        relationships_ = RelationshipsPart::parse(asText(document), where(name));
    }
}

std::vector<std::uint8_t> PackageState::readItem(const zip::ZipItem& item,
                                                 const std::string& name) const {
    const auto stream = archive_->read(item);
    return readAll(*stream, 0, xml::kMaxBytes, name);
}

void PackageState::save() {
    if (!writer_) return;
    for (const auto& [key, part] : parts_)
        part->revokeStreams();
    const bool created = mode_ != OpenMode::Edit;
    if (!(relationships_ == loadedRelationships_)) saveRelationships();
    if (created || !(types_ == loadedTypes_)) setTable(typesItem_, types_.toXml());
    if (const auto saved = writer_->save()) physical_->bindTo(*saved);
}

void PackageState::saveRelationships() {
    const PartName& name = names::packageRelationships();
    const auto* const part = findPart(name);
    types_.set(name, names::relationshipsType());
    setTable(part ? (*part)->itemName : itemNameOf(name), relationships_.toXml());
}

void PackageState::setTable(const std::string& name, const std::string& content) {
    xml::check(content, file_ + ": " + name);  // a table that is written must be readable
    const auto stream = writer_->set(name, {.deflate = true});
    stream->write(std::as_bytes(std::span(content)));
    stream->flush();
}

const std::shared_ptr<PartEntry>* PackageState::findPart(const PartName& name) const {
    const auto found = parts_.find(name.key());
    return found == parts_.end() ? nullptr : &found->second;
}

std::vector<std::shared_ptr<PartEntry>> PackageState::partsInOrder() const {
    std::vector<std::shared_ptr<PartEntry>> parts;
    parts.reserve(parts_.size());
    for (const auto& [key, part] : parts_)
        parts.push_back(part);
    std::ranges::sort(parts, {}, [](const auto& part) { return part->order; });
    return parts;
}

const PartEntry* PackageState::relative(const PartName& name) const {
    const auto next = parts_.lower_bound(name.key());
    if (next != parts_.end() && derives(next->first, name.key())) return next->second.get();
    if (next == parts_.begin()) return nullptr;
    const auto& previous = *std::prev(next);
    return derives(name.key(), previous.first) ? previous.second.get() : nullptr;
}

const std::shared_ptr<PartEntry>& PackageState::insert(const PartName& name,
                                                       const ContentType& type,
                                                       const StandardPartInfo& info,
                                                       std::string itemName) {
    auto part = std::make_shared<PartEntry>(*this, name, type, info);
    part->itemName = std::move(itemName);
    part->order = nextOrder_++;
    auto& place = parts_.try_emplace(parts_.end(), name.key())->second;
    place = std::move(part);
    return place;
}

void PackageState::refuseInReport() const {
    if (writer_) writer_->refuseInReport();
}

void PackageState::requireWritable() const {
    if (!writer_) refuse("the package is open for reading only; open it for editing");
    refuseInReport();
}

void PackageState::requireFree(const PartName& name, const ContentType& type) const {
    if (isPackageRelationships(name)) {
        refuse(shown(name.toString()) + " is kept by the package; create relationships instead");
    }
    if (isRelationshipsName(name) && !(type == names::relationshipsType())) {
        refuse(shown(name.toString()) +
               " is the name of a relationships part; its type must be \"" +
               shown(names::kRelationshipsType) + "\"");
    }
    if (findPart(name) != nullptr) {
        refuse("the package already has a part " + shown(name.toString()) +
               " (delete that one first, or choose another name)");
    }
    requireNoUntypedItem(name);
    if (const auto* const other = relative(name)) {
        refuse("there cannot be a part " + shown(name.toString()) + " beside " +
               shown(other->name.toString()) + ": one name derives from the other");
    }
}

void PackageState::requireNoUntypedItem(const PartName& name) const {
    if (!hasUntypedItem(name)) return;
    refuse(shown(name.toString()) +
           " has no content type and so is not a part, and a new part of that name would replace "
           "it; give it one in " +
           std::string(names::kContentTypesItem) + ", or remove it from the zip file");
}

const std::shared_ptr<PartEntry>& PackageState::createPart(const PartName& name,
                                                           const ContentType& type,
                                                           const StandardPartInfo& info) {
    requireWritable();
    requireFree(name, type);
    const auto& part = insert(name, type, info, itemNameOf(name));
    const zip::ItemOptions options{info.compression() != 0};
    try {
        writer_->set(part->itemName, options)->flush();
        types_.set(name, type);
    } catch (...) {
        // A later save must not write a part without a content type.
        writer_->remove(part->itemName);
        parts_.erase(name.key());
        throw;
    }
    return part;
}

void PackageState::deletePart(const PartName& name) {
    requireWritable();
    if (findPart(name) == nullptr) {
        refuse("there is no part " + shown(name.toString()) + " to delete");
    }
    if (isPackageRelationships(name)) {
        refuse(shown(name.toString()) + " is kept by the package; delete relationships instead");
    }
    const auto node = parts_.extract(name.key());
    node.mapped()->revokeStreams();
    types_.removeOverride(node.mapped()->name);
    writer_->remove(node.mapped()->itemName);
}

Relationship PackageState::createRelationship(const ustring& type, const URI& target,
                                              const ustring& id, TargetMode mode) {
    requireWritable();
    try {
        return relationships_.create(type, target, id, mode);
    } catch (const Exception& fault) {
        refuse(fault.what());
    }
}

void PackageState::deleteRelationship(const ustring& id) {
    requireWritable();
    if (!relationships_.remove(id)) {
        refuse("there is no relationship \"" + shown(id) + "\" to delete");
    }
}

std::unique_ptr<InputStream> PackageState::read(PartEntry& part) const {
    auto name = where(part.name);
    if (part.item != nullptr) {
        auto lease = std::make_shared<Lease<InputStream>>(archive_->read(*part.item));
        return std::make_unique<PartInputStream>(std::move(name), std::move(lease));
    }
    return std::make_unique<PartInputStream>(std::move(name),
                                             part.inputs.grant(writer_->read(part.itemName)));
}

std::unique_ptr<OutputStream> PackageState::write(const std::shared_ptr<PartEntry>& part) {
    requireWritable();
    if (isPackageRelationships(part->name)) {
        refuse(shown(part->name.toString()) +
               " is kept by the package; change relationships instead");
    }
    const zip::ItemOptions options{part->info.compression() != 0};
    // A call of the stream that ends the package does not end what the stream still needs.
    struct Kept {
        std::shared_ptr<zip::ZipWriter> writer;
        std::unique_ptr<OutputStream> stream;
    };
    const auto kept = std::make_shared<Kept>(Kept{writer_, writer_->set(part->itemName, options)});
    auto lease = part->outputs.grant({kept, kept->stream.get()});
    return std::make_unique<PartOutputStream>(where(part->name), part, std::move(lease));
}

std::string PackageState::where(const PartName& name) const {
    return file_ + ": " + shown(name.toString());
}

void PackageState::refuse(const std::string& text) const {
    throw Exception(file_ + ": " + text);
}

}  // namespace opc::model
