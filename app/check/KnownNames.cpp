#include "app/check/KnownNames.hpp"

#include <fl/i18n.hpp>
#include <opc/Exception.hpp>

#include <utility>

#include "app/check/AppLayout.hpp"
#include "app/check/PackageView.hpp"

namespace qzapp {
namespace {

using opc::model::PartName;
using opc::model::Relationship;

std::string itemName(const PartName& part) {
    return fl::i18n::ustring_to_utf8(part.toString()).substr(1);
}

}  // namespace

KnownNames::KnownNames() : names_{kTypesItem, itemName(packageRelationships())} {
    for (const layout::AppPart& part : layout::kParts)
        names_.insert(itemName(PartName(part.name)));
    for (const auto& format : layout::app::kScreenshotFormats)
        names_.insert(itemName(layout::screenshotName(format.extension)));
}

void KnownNames::add(opc::model::ContentTypesTable types) {
    for (const PartName& part : types.overrides())
        names_.insert(itemName(part));
    types_ = std::move(types);
}

void KnownNames::add(const opc::model::RelationshipsTable& relationships) {
    for (const Relationship& relationship : relationships.relationships) {
        try {
            names_.insert(itemName(PartName(relationship.getTargetURI())));
        } catch (const opc::Exception&) {
            // It leads to no part.
        }
    }
}

bool KnownNames::prefers(std::string_view name, std::string_view other) const {
    return rankOf(name) > rankOf(other);
}

int KnownNames::rankOf(std::string_view name) const {
    if (names_.contains(name)) return 2;
    const auto part = partNameOf(name);
    return part && types_ && types_->find(*part) ? 1 : 0;
}

}  // namespace qzapp
