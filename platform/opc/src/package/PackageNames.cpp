#include <opc/PackageNames.hpp>

#include <fl/i18n.hpp>
#include <foundation/Immortal.hpp>

#include "platform/opc/src/Ascii.hpp"

#include <utility>

namespace opc::names {

using foundation::ustring;
using foundation::ustring_view;
using model::ContentType;
using model::PartName;

std::optional<PartName> partNameOf(std::string_view item, std::string* fault) {
    // Widening the bytes is enough, because a name with bytes outside ASCII is refused in any
    // encoding.
    ustring name = u"/";
    name.reserve(1 + item.size());
    for (const char c : item)
        name += char16_t(static_cast<unsigned char>(c));
    return PartName::fromName(std::move(name), fault);
}

std::string itemNameOf(const PartName& part) {
    return fl::i18n::ustring_to_utf8(ustring_view(part.toString()).substr(1));
}

bool isContentTypesItem(std::string_view item) {
    return ascii::equalIgnoringCase(item, kContentTypesItem);
}

const PartName& packageRelationships() {
    static const foundation::Immortal<PartName> name(kRelationshipsPart);
    return *name;
}

const ContentType& relationshipsType() {
    static const foundation::Immortal<ContentType> type(kRelationshipsType);
    return *type;
}

bool isRelationshipsName(const PartName& name) {
    const auto lower = ascii::lowered(ustring_view(name.toString()));
    const auto slash = lower.rfind(u'/');
    return ustring_view(lower).substr(0, slash + 1).ends_with(kRelationshipsFolder) &&
           lower.ends_with(kRelationshipsExtension);
}

PartName relationshipsOf(const PartName& part) {
    const ustring_view name = part.toString();
    const auto slash = name.rfind(u'/');
    ustring table(name.substr(0, slash));
    table.append(kRelationshipsFolder).append(name.substr(slash + 1));
    return PartName(ustring_view(table.append(kRelationshipsExtension)));
}

std::optional<PartName> sourceOf(const PartName& relationships) {
    const ustring_view name = relationships.toString();
    const auto slash = name.rfind(u'/');
    const auto folder = slash + 1 - kRelationshipsFolder.size();
    ustring source(name.substr(0, folder + 1));
    source += name.substr(slash + 1);
    source.resize(source.size() - kRelationshipsExtension.size());
    return PartName::fromName(std::move(source));
}

}  // namespace opc::names
