#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <opc/PartKind.hpp>
#include <opc/PartName.hpp>
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

// An item of a package as far as it can be understood. It is a part if it has a part name and a
// type.
struct FoundItem {
    const zip::ZipItem* item;      // lives as long as the FoundPackage
    std::string shownName;         // for people, as UTF-8; starts with "/" if there is a part name
    std::optional<PartName> name;  // nullopt if the item cannot be a part
    std::string nameFault = {};    // why there is no part name, otherwise empty
    // The archive's name for the item if it goes by the other one that the file has for it.
    std::string otherName = {};
    std::optional<ContentType> type = std::nullopt;  // nullopt if the package has no type for it
    std::string fault = {};       // why its content cannot be read; empty if it can
    bool hasStaleSlices = false;  // its table of slices does not fit; see ZipArchive::verify()

    bool isPart() const { return name && type; }
};

// A package that may be damaged, for describing or repairing it: everything that can be understood
// is here, and what Package::open() would refuse is collected as faults. The constructor takes an
// archive, opened or salvaged, reads every item to its end, and then reads the two tables: the
// content types and the package's relationships. Afterwards a FoundPackage does not change. It
// keeps the archive open, and its items point into it, so it cannot be copied. Use it from one
// thread at a time.
class PLATFORM_API FoundPackage {
public:
    // `kinds` are the parts that such a package usually has. They stand in for what is damaged: if
    // one of the two tables cannot be read, parts get the types or relationships of the kinds, and
    // their names help to decide which of an item's two names is right. Throws opc::Exception if
    // the file changes while it is read.
    FoundPackage(std::shared_ptr<const zip::ZipArchive> archive, std::span<const PartKind> kinds);
    FoundPackage(const FoundPackage&) = delete;
    FoundPackage& operator=(const FoundPackage&) = delete;
    ~FoundPackage();

    std::shared_ptr<const zip::ZipArchive> archive;
    std::vector<FoundItem> items;  // in the order of the file

    // The item with the content types, or null if there is none.
    const FoundItem* typesItem = nullptr;
    bool hasTypes = false;                // whether that item could be read
    std::vector<std::string> typeFaults;  // which of its entries break a rule, and how
    std::vector<PartName> typedNames;     // with an entry of their own; need not be there

    // The item with the package's relationships, or null; its faults; and the relationships, which
    // are assumed from the kinds if that item cannot be read.
    const FoundItem* relationshipsItem = nullptr;
    std::vector<std::string> relationshipFaults;
    std::vector<Relationship> relationships;

    // The item with this part name, or null. It is not a part if it has no type.
    const FoundItem* findItem(const PartName& name) const;
    // The item that a relationship of the package leads to, or null if it is external or dangles.
    const FoundItem* targetItem(const Relationship& relationship) const;
    // The part with this name, or null. The second form throws opc::Exception if it is not a part
    // name.
    const FoundItem* find(const PartName& name) const;
    const FoundItem* find(ustring_view name) const { return find(PartName(name)); }
    // The part that a relationship of the package leads to, or null if it is external or dangles.
    const FoundItem* target(const Relationship& relationship) const;
    // The package's relationships of a type, in their order. The pointers are valid as long as this
    // object.
    std::vector<const Relationship*> byType(ustring_view type) const;

    // The relationships of a part, with targets that count from the root of the package. None if
    // they cannot be read. Throws as read() does.
    std::vector<Relationship> relationshipsFrom(const FoundItem& part) const;

    // The content of an item; nullopt if it is damaged or has more than `limit` bytes. Throws
    // opc::Exception if the file has changed since the item was read by the constructor.
    std::optional<std::string> read(const FoundItem& item, std::uint64_t limit) const;

    // The parts that can be reached by relationships, starting with those of the package. Reads the
    // relationships of each of these parts, and throws as read() does.
    std::set<const FoundItem*> reachable() const;
    // Pairs of parts that no package may have: the name of the first derives from that of the
    // second.
    std::vector<std::pair<const FoundItem*, const FoundItem*>> derivedNames() const;

private:
    class Reading;

    std::map<std::string, zip::ZipItem> renamed_;    // items under their local names
    std::map<std::string, const FoundItem*> named_;  // by part name key
};

}  // namespace opc::model
