#pragma once

#include <foundation/Export.hpp>
#include <opc/Names.hpp>
#include <opc/PartKind.hpp>
#include <opc/Relationship.hpp>
#include <opc/ZipArchive.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace opc::model {

// An item of a package as far as it can be understood. It is a part when it has a name and a type.
struct FoundItem {
    const zip::ZipItem* item;
    std::string shownName;         // UTF-8; starts with "/" when there is a part name
    std::optional<PartName> name;  // in the package
    std::string nameFault = {};    // why there is none
    // What the directory calls it, where the package knows it by the name in its local header.
    std::string directoryName = {};
    std::optional<ContentType> type = std::nullopt;
    std::string fault = {};  // why its content cannot be read

    bool isPart() const { return name && type; }
};

// A package in pieces, for describing or repairing one that Package::open() refuses: what it would refuse is
// collected, and whatever can be understood is there. The constructor takes an archive, opened or salvaged,
// reads every item to its end and then the two tables. A FoundPackage keeps the archive open and never
// changes; its items point into it, so it is not copied. Use it from one thread at a time.
class PLATFORM_API FoundPackage {
public:
    // `kinds` are the parts that such a package usually has. They stand in for what is damaged: where one of
    // the two tables cannot be read, parts have the types and relationships of the kinds, and their names
    // help to tell which of an item's two names is right. Throws opc::Exception, as read() and
    // reachable() do, when the file has changed since an item was read to its end.
    FoundPackage(std::shared_ptr<const zip::ZipArchive> archive, std::span<const PartKind> kinds);
    FoundPackage(const FoundPackage&) = delete;
    FoundPackage& operator=(const FoundPackage&) = delete;
    ~FoundPackage();

    std::shared_ptr<const zip::ZipArchive> archive;
    std::vector<FoundItem> items;  // in the order of the file

    // "[Content_Types].xml": null when there is none.
    const FoundItem* typesItem = nullptr;
    bool hasTypes = false;                // whether it could be read
    std::vector<std::string> typeFaults;  // what breaks a rule in it
    std::vector<PartName> typedNames;     // that have an entry of their own; they need not be there

    // "/_rels/.rels", as for the types.
    const FoundItem* relationshipsItem = nullptr;
    std::vector<std::string> relationshipFaults;
    std::vector<Relationship> relationships;

    // Null when there is no item of this name. Without a content type it is no part.
    const FoundItem* findItem(const PartName& name) const;
    // What a relationship of the package leads to; null when it is external or there is no such item.
    const FoundItem* targetItem(const Relationship& relationship) const;
    // Null when there is no part of this name.
    const FoundItem* find(const PartName& name) const;
    const FoundItem* find(ustring_view name) const { return find(PartName(name)); }
    // The part that a relationship of the package leads to; null when it is external or dangles.
    const FoundItem* target(const Relationship& relationship) const;
    std::vector<const Relationship*> byType(ustring_view type) const;

    // The content; nullopt when it is damaged or longer than `limit`.
    std::optional<std::string> read(const FoundItem& item, std::uint64_t limit) const;

    // The parts to which relationships lead, from the package or from a part that they lead to. Reads the
    // relationships of these parts.
    std::set<const FoundItem*> reachable() const;
    // Parts whose name derives from that of another one, with that one.
    std::vector<std::pair<const FoundItem*, const FoundItem*>> derivedNames() const;

private:
    class Reading;

    std::vector<Relationship> relationshipsFrom(const FoundItem& part) const;

    std::map<std::string, zip::ZipItem> renamed_;    // items under their local names
    std::map<std::string, const FoundItem*> named_;  // by part name key
};

}  // namespace opc::model
