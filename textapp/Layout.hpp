#pragma once

// Every name in the appendix of a text app file, and the tables of its sections and fields. The
// reader and the checks work from these tables, so a new field is one more row. docs/format-k.md
// describes the format.

#include <appserialization/AppMetadata.hpp>
#include <appserialization/ustring.hpp>
#include <foundation/ustring.hpp>

#include <array>
#include <span>
#include <string_view>
#include <vector>

namespace appserialization::textapp {

using foundation::ustring_view;

inline constexpr const char16_t* kExtension = u".k";

// A section is kSectionOpen, its name and kSectionClose, then anything, then kBodyOpen, its body
// and kBodyClose.
inline constexpr ustring_view kSectionOpen = u"%[";
inline constexpr ustring_view kSectionClose = u"]";
inline constexpr ustring_view kBodyOpen = u"{";
inline constexpr ustring_view kBodyClose = u"%}";

// An element of a section that holds a field's text.
struct TextElementRow {
    const char16_t* name;
    const char16_t* missing;  // the field's value if the section lacks the element
    bool isTrimmed;           // whether white space around the text is removed
    void (AppMetadata::*set)(const ustring&);
};
inline constexpr std::array kDetailsTexts = {
    TextElementRow{u"Name", u"", true, &AppMetadata::setName},
    TextElementRow{u"Author", u"", true, &AppMetadata::setAuthor},
    TextElementRow{u"Version", u"1.0", true, &AppMetadata::setVersion},
    TextElementRow{u"Summary", u"", false, &AppMetadata::setSummary},
    TextElementRow{u"Description", u"", false, &AppMetadata::setDescription},
};
inline constexpr std::array kInternalTexts = {
    TextElementRow{u"AppId", u"", true, &AppMetadata::setUuid},
    TextElementRow{u"AppType", u"Standard", true, &AppMetadata::setAppType},
    TextElementRow{u"MinimumSupportedKORVALRelease", u"R2025a", true,
                   &AppMetadata::setMinimumSupportedKORVALRelease},
    TextElementRow{u"KORVALRelease", u"", true, &AppMetadata::setKORVALRelease},
};

// An element of a section that holds a field's list. It contains an item element for each value.
struct ListElementRow {
    const char16_t* name;
    const char16_t* item;
    void (AppMetadata::*set)(const std::vector<ustring>&);
};
inline constexpr std::array kInternalLists = {
    ListElementRow{u"RequiredProducts", u"Product", &AppMetadata::setRequiredProducts},
    ListElementRow{u"UserComponents", u"Component", &AppMetadata::setUserComponents},
    ListElementRow{u"ImageRelativePaths", u"Path", &AppMetadata::setImageRelativePaths},
};

// The element that holds the screenshot as a data URI. Its attribute is "false" if the app brings
// the screenshot; otherwise the host takes one.
inline constexpr const char16_t* kThumbnail = u"Thumbnail";
inline constexpr const char16_t* kAutoCapture = u"autoCapture";
// A data URI of an image is kImageUriStart, the format, kPayloadMarker and the image in base64.
inline constexpr std::string_view kImageUriStart = "data:image/";
inline constexpr std::string_view kPayloadMarker = ";base64,";

// A section and the elements that are looked up in it.
struct SectionRow {
    ustring_view name;
    std::span<const TextElementRow> texts;
    std::span<const ListElementRow> lists;
    const char16_t* screenshot;  // the element that holds it, or null
};
inline constexpr SectionRow kDetailsSection{u"app:appDetails", kDetailsTexts, {}, nullptr};
inline constexpr SectionRow kInternalSection{u"app:internalData", kInternalTexts, kInternalLists,
                                             nullptr};
inline constexpr SectionRow kThumbnailSection{u"app:thumbnail", {}, {}, kThumbnail};
inline constexpr std::array kSections = {kDetailsSection, kInternalSection, kThumbnailSection};
// The names of all sections start with this.
inline constexpr ustring_view kSectionPrefix = u"app:";

}  // namespace appserialization::textapp
