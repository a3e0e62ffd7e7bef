#pragma once

// Every name in the appendix of a text app file, and the tables of its sections and fields. The
// reader and the checks work from these tables, so a new field is one more row. docs/format-k.md
// describes the format.

#include <appserialization/AppMetadata.hpp>
#include <appserialization/ustring.hpp>

#include <algorithm>
#include <array>
#include <span>
#include <string_view>
#include <vector>

namespace appserialization::textapp {

inline constexpr const char16_t* kExtension = u".k";

// A section is kSectionOpen, its name and kSectionClose, then anything, then kBodyOpen, its body
// and kBodyClose.
inline constexpr std::string_view kSectionOpen = "%[";
inline constexpr std::string_view kSectionClose = "]";
inline constexpr std::string_view kBodyOpen = "{";
inline constexpr std::string_view kBodyClose = "%}";

// An element of a section that holds a field's text.
struct TextElementRow {
    std::string_view name;
    std::string_view missing;  // the field's value if the section lacks the element
    bool isTrimmed;            // whether white space around the text is removed
    void (AppMetadata::*set)(const ustring&);
};
inline constexpr std::array kDetailsTexts = {
    TextElementRow{"Name", "", true, &AppMetadata::setName},
    TextElementRow{"Author", "", true, &AppMetadata::setAuthor},
    TextElementRow{"Version", "1.0", true, &AppMetadata::setVersion},
    TextElementRow{"Summary", "", false, &AppMetadata::setSummary},
    TextElementRow{"Description", "", false, &AppMetadata::setDescription},
};
inline constexpr std::array kInternalTexts = {
    TextElementRow{"AppId", "", true, &AppMetadata::setUuid},
    TextElementRow{"AppType", "Standard", true, &AppMetadata::setAppType},
    TextElementRow{"MinimumSupportedKORVALRelease", "R2025a", true,
                   &AppMetadata::setMinimumSupportedKORVALRelease},
    TextElementRow{"KORVALRelease", "", true, &AppMetadata::setKORVALRelease},
};

// An element of a section that holds a field's list. It contains an item element for each value.
struct ListElementRow {
    std::string_view name;
    std::string_view item;
    void (AppMetadata::*set)(const std::vector<ustring>&);
};
inline constexpr std::array kInternalLists = {
    ListElementRow{"RequiredProducts", "Product", &AppMetadata::setRequiredProducts},
    ListElementRow{"UserComponents", "Component", &AppMetadata::setUserComponents},
    ListElementRow{"ImageRelativePaths", "Path", &AppMetadata::setImageRelativePaths},
};

// The element that holds the screenshot as a data URI. Its attribute is "false" if the app brings
// the screenshot; otherwise the host takes one.
inline constexpr std::string_view kThumbnail = "Thumbnail";
inline constexpr std::string_view kAutoCapture = "autoCapture";
// A data URI of an image is kImageUriStart, the format, kPayloadMarker and the image in base64.
inline constexpr std::string_view kImageUriStart = "data:image/";
inline constexpr std::string_view kPayloadMarker = ";base64,";

// A section and the elements that are looked up in it.
struct SectionRow {
    std::string_view name;
    std::span<const TextElementRow> texts;
    std::span<const ListElementRow> lists;
    std::string_view screenshot;  // the element that holds it, or empty
};
inline constexpr SectionRow kDetailsSection{"app:appDetails", kDetailsTexts, {}, {}};
inline constexpr SectionRow kInternalSection{
    "app:internalData", kInternalTexts, kInternalLists, {}};
inline constexpr SectionRow kThumbnailSection{"app:thumbnail", {}, {}, kThumbnail};
inline constexpr std::array kSections = {kDetailsSection, kInternalSection, kThumbnailSection};
// The markers of all these sections start with this, so that one search finds them.
inline constexpr std::string_view kAppSectionOpen = "%[app:";
static_assert(std::ranges::all_of(kSections, [](const SectionRow& section) {
    return kAppSectionOpen.starts_with(kSectionOpen) &&
           section.name.starts_with(kAppSectionOpen.substr(kSectionOpen.size()));
}));

}  // namespace appserialization::textapp
