#include "app/check/AppLayout.hpp"

#include <fl/i18n.hpp>
#include <foundation/Immortal.hpp>

namespace qzapp::layout {

const std::vector<MetadataElement>& metadataElements() {
    using fl::i18n::ustring_to_utf8;
    static const foundation::Immortal<std::vector<MetadataElement>> elements([] {
        std::vector<MetadataElement> all;
        for (const auto* text : app::kTextElementsAsWritten)
            all.push_back({ustring_to_utf8(text->name), "", ""});
        for (const auto& list : app::kListElements) {
            all.push_back({ustring_to_utf8(list.name), ustring_to_utf8(list.item),
                           ustring_to_utf8(list.attribute)});
        }
        return all;
    }());
    return *elements;
}

}  // namespace qzapp::layout
