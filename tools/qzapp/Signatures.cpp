#include "tools/qzapp/Signatures.hpp"

#include <algorithm>
#include <set>
#include <string>

#include "package/Layout.hpp"

namespace qzapp::signatures {
namespace {

using foundation::ustring;
using opc::model::ContentType;
using opc::model::Package;
using opc::model::Part;
using opc::model::PartName;
using opc::model::Relationship;

constexpr const char16_t* kOriginRelationship =
    u"http://schemas.openxmlformats.org/package/2006/relationships/digital-signature/origin";
constexpr const char16_t* kSignatureType =
    u"application/vnd.openxmlformats-package.digital-signature-xmlsignature+xml";
constexpr const char16_t* kTypes[] = {
    u"application/vnd.openxmlformats-package.digital-signature-origin",
    kSignatureType,
    u"application/vnd.openxmlformats-package.digital-signature-certificate",
};

// Where the relationships that start from a part stand.
PartName relationshipsOf(const PartName& part) {
    const ustring& name = part.toString();
    const std::size_t slash = name.rfind(u'/') + 1;
    return PartName(name.substr(0, slash) + u"_rels/" + name.substr(slash) + u".rels");
}

// Parts that are found as something else stay, whatever their type says.
std::vector<PartName> partsOfSignatures(const Package& package) {
    std::set<std::string> inUse = {PartName(appserialization::layout::kAppModel.name).key()};
    for (const Relationship& link : package.getRelationships()) {
        if (link.getType() != kOriginRelationship && package.hasTarget(link))
            inUse.insert(package.getTarget(link).getName().key());
    }
    std::vector<PartName> parts;
    for (const Part& part : package.getParts()) {
        const PartName& name = part.getName();
        if (isPartOfSignature(part.getContentType()) && !inUse.contains(name.key()))
            parts.push_back(name);
    }
    return parts;
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
    if (!package.byType(kOriginRelationship).empty()) return true;
    return std::ranges::any_of(package.items, [](const ViewedItem& item) {
        return item.isPart() && isPartOfSignature(*item.type);
    });
}

std::size_t count(const PackageView& package) {
    const auto number = std::ranges::count_if(package.items, [](const ViewedItem& item) {
        return item.isPart() && *item.type == ContentType(kSignatureType);
    });
    return static_cast<std::size_t>(number);
}

void remove(Package& package) {
    for (const Relationship& link : package.getRelationshipsByType(kOriginRelationship))
        package.deleteRelationship(link.getID());
    for (const PartName& name : partsOfSignatures(package)) {
        package.deletePart(name);
        const PartName relationships = relationshipsOf(name);
        if (package.hasPart(relationships)) package.deletePart(relationships);
    }
}

}  // namespace qzapp::signatures
