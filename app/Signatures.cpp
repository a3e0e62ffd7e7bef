#include "app/Signatures.hpp"

#include <foundation/JoinedText.hpp>
#include <foundation/ustring.hpp>
#include <opc/FoundPackage.hpp>
#include <opc/PackageNames.hpp>
#include <opc/Relationship.hpp>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "package/Layout.hpp"

namespace qzapp::signatures {
namespace {

using foundation::ustring;
using opc::model::ContentType;
using opc::model::FoundItem;
using opc::model::Package;
using opc::model::Part;
using opc::model::PartName;
using opc::model::Relationship;

constexpr const char16_t* kOriginRelationship =
    foundation::kJoinedText<opc::names::kPackageSchemas,
                            u"/relationships/digital-signature/origin">.data();
constexpr const char16_t* kSignatureType =
    u"application/vnd.openxmlformats-package.digital-signature-xmlsignature+xml";
constexpr const char16_t* kTypes[] = {
    u"application/vnd.openxmlformats-package.digital-signature-origin",
    kSignatureType,
    u"application/vnd.openxmlformats-package.digital-signature-certificate",
};

struct TypedPart {
    PartName name;
    ContentType type;
};

// Selects the parts of signatures among all parts of a package: those with the content type of one,
// unless another relationship of the package leads to them.
class Selection {
public:
    void add(const Relationship& link, const PartName& target) {
        if (link.getType() != kOriginRelationship) inUse_.insert(target.key());
    }
    void add(const PartName& name, const ContentType& type) {
        if (isPartOfSignature(type)) candidates_.push_back({name, type});
    }
    std::vector<TypedPart> parts() const {
        std::vector<TypedPart> parts = candidates_;
        std::erase_if(parts,
                      [&](const TypedPart& part) { return inUse_.contains(part.name.key()); });
        return parts;
    }

private:
    std::set<std::string> inUse_ = {PartName(appserialization::layout::kAppModel.name).key()};
    std::vector<TypedPart> candidates_;
};

std::vector<TypedPart> partsOfSignatures(const Package& package) {
    Selection selection;
    for (const Relationship& link : package.getRelationships()) {
        if (package.hasTarget(link)) selection.add(link, package.getTarget(link).getName());
    }
    for (const Part& part : package.getParts())
        selection.add(part.getName(), part.getContentType());
    return selection.parts();
}

std::vector<TypedPart> partsOfSignatures(const PackageView& package) {
    Selection selection;
    for (const Relationship& link : package.relationships) {
        const FoundItem* const target = package.target(link);
        if (target != nullptr) selection.add(link, *target->name);
    }
    for (const FoundItem& item : package.items) {
        if (item.isPart()) selection.add(*item.name, *item.type);
    }
    return selection.parts();
}

}  // namespace

bool isPartOfSignature(const ContentType& type) {
    return std::ranges::any_of(kTypes,
                               [&](const char16_t* each) { return type == ContentType(each); });
}

bool isSigned(const Package& package) {
    return !package.getRelationshipsByType(kOriginRelationship).empty() ||
           !partsOfSignatures(package).empty();
}

bool isSigned(const PackageView& package) {
    return !package.byType(kOriginRelationship).empty() || !partsOfSignatures(package).empty();
}

std::size_t count(const PackageView& package) {
    const auto number = std::ranges::count(partsOfSignatures(package), ContentType(kSignatureType),
                                           &TypedPart::type);
    return static_cast<std::size_t>(number);
}

void remove(Package& package) {
    for (const Relationship& link : package.getRelationshipsByType(kOriginRelationship))
        package.deleteRelationship(link.getID());
    for (const auto& [name, type] : partsOfSignatures(package)) {
        package.deletePart(name);
        const PartName relationships = opc::names::relationshipsOf(name);
        if (package.hasPart(relationships)) package.deletePart(relationships);
    }
}

}  // namespace qzapp::signatures
