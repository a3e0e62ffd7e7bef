#pragma once

#include <opc/PackageTables.hpp>
#include <opc/ZipArchive.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/FileName.hpp"

namespace qzapp {

// An item of a package as far as it can be understood. It is a part when it has name and type.
struct ViewedItem {
    const opc::zip::ZipItem* item;
    std::string shownName;  // with "/" in front when it could be a part
    std::optional<opc::model::PartName> name;
    std::string nameFault;  // why there is none
    // What the directory calls it, where the package knows it by the name in its local header.
    std::string directoryName = {};
    std::optional<opc::model::ContentType> type;
    std::string fault;  // why its content cannot be read

    bool isPart() const { return name && type; }
};

// A package in pieces, readers may refuse it or not: whatever can still be read. Making one throws
// Error only when the file itself cannot be read.
class PackageView {
public:
    explicit PackageView(const FileName& file);
    PackageView(const PackageView&) = delete;
    PackageView& operator=(const PackageView&) = delete;

    FileName file;
    std::shared_ptr<const opc::zip::ZipArchive> archive;
    // Why readers refuse the zip file, then the package; empty when they do not.
    std::string zipRefusal, packageRefusal;
    // Which rule the zip file breaks; nullopt when readers do not refuse it, or could not tell.
    std::optional<opc::zip::ZipRule> brokenRule;
    std::vector<opc::zip::LostItem> lost;
    const ViewedItem* typesItem = nullptr;
    // Where one of the two tables cannot be read, types and relationships are those that an app has.
    std::optional<opc::model::ContentTypesTable> types;
    const ViewedItem* relationshipsItem = nullptr;  // the package's own
    std::vector<opc::model::Relationship> relationships;
    std::vector<std::string> relationshipFaults;
    std::vector<ViewedItem> items;  // in the order of the file

    // Whether anything in it, readable or not, is of what its name promises: of an app (core properties,
    // which every package may have, are not enough), or of a package.
    bool isRepairable = false;

    bool opens() const { return zipRefusal.empty() && packageRefusal.empty(); }

    // Null when there is no item of this name. Without a content type it is no part.
    const ViewedItem* findItem(const opc::model::PartName& name) const;
    // What a relationship leads to; null when it is external or there is no such item.
    const ViewedItem* targetItem(const opc::model::Relationship& relationship) const;
    // Null when there is no part of this name.
    const ViewedItem* find(const opc::model::PartName& name) const;
    const ViewedItem* find(foundation::ustring_view name) const;
    // The part that a relationship leads to; null when it is external or dangles.
    const ViewedItem* target(const opc::model::Relationship& relationship) const;
    std::vector<const opc::model::Relationship*> byType(foundation::ustring_view type) const;

    // The content; nullopt when it is damaged or longer than `limit`.
    std::optional<std::string> read(const ViewedItem& item, std::uint64_t limit) const;

private:
    void open();
    void salvage();
    void settleNames();
    void viewItems();
    void readTypes();
    void readRelationships();
    void assumeRelationships();
    void openPackage();
    bool holdsApp() const;
    bool holdsTables() const;

    std::map<std::string, opc::zip::ZipItem> renamed_;  // items under their local names
    std::map<std::string, const ViewedItem*> named_;    // by part name key
};

inline constexpr const char* kTypesItem = "[Content_Types].xml";
// The name of the part that an item of this name is; otherwise nullopt, and `fault` says why.
std::optional<opc::model::PartName> partNameOf(std::string_view item, std::string* fault = nullptr);
bool isRelationshipsName(const opc::model::PartName& name);
const opc::model::ContentType& relationshipsType();
// Whether the file's name says that it is a packaged app, in any case.
bool isAppName(const FileName& file);
// Where the package's own relationships stand.
const opc::model::PartName& packageRelationships();
std::string shownName(const opc::model::PartName& name);

}  // namespace qzapp
