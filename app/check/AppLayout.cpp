#include "app/check/AppLayout.hpp"

#include <appserialization/AppMetadata.hpp>
#include <fl/i18n.hpp>
#include <foundation/Immortal.hpp>

#include <algorithm>
#include <variant>

#include "metadata/Fields.hpp"

namespace qzapp::layout {

namespace {

namespace appmetadata = appserialization::appmetadata;

// The field that is set through `set`, the setter of a text or of a list.
template <class Access, class Set>
Field fieldOf(Set set) {
    const auto isMeant = [&](const appmetadata::FieldRow& row) {
        const auto* access = std::get_if<Access>(&row.access);
        return access != nullptr && access->set == set;
    };
    return std::ranges::find_if(appmetadata::kFields, isMeant)->field;
}

}  // namespace

const std::vector<MetadataElement>& metadataElements() {
    using fl::i18n::ustring_to_utf8;
    static const foundation::Immortal<std::vector<MetadataElement>> elements([] {
        std::vector<MetadataElement> all;
        for (const auto* text : app::kTextElementsAsWritten)
            all.push_back({ustring_to_utf8(text->name), "", "",
                           fieldOf<appmetadata::TextAccess>(text->set),
                           ustring_to_utf8(text->defaultText)});
        for (const auto& list : app::kListElements) {
            all.push_back({ustring_to_utf8(list.name), ustring_to_utf8(list.item),
                           ustring_to_utf8(list.attribute),
                           fieldOf<appmetadata::ListAccess>(list.set), ""});
        }
        return all;
    }());
    return *elements;
}

}  // namespace qzapp::layout
