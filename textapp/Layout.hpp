#pragma once

// Every name that the appendix of a text app file is made of, for the reader and for checks.

#include <appserialization/AppMetadata.hpp>
#include <foundation/ustring.hpp>

#include <array>
#include <span>
#include <string_view>
#include <vector>

namespace appserialization::textapp {

using foundation::ustring_view;

inline constexpr const char16_t* kExtension = u".k";

// A section is kSectionOpen, its name, kSectionClose, and somewhere behind that kBodyOpen, its body and
// kBodyClose.
inline constexpr ustring_view kSectionOpen = u"%[";
inline constexpr ustring_view kSectionClose = u"]";
inline constexpr ustring_view kBodyOpen = u"{";
inline constexpr ustring_view kBodyClose = u"%}";

// An element of a section that holds a field's text.
struct TextElementRow {
    const char16_t* name;
    const char16_t* missing;  // the text of a section without the element
    bool isTrimmed;           // otherwise white space around the text is kept as written
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

// An element of a section that holds a field's list: an item element for each value.
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

// The element that holds the screenshot as a data URI; its attribute says who makes the screenshot.
inline constexpr const char16_t* kThumbnail = u"Thumbnail";
inline constexpr const char16_t* kAutoCapture = u"autoCapture";
// "data:image/" format ";base64," payload.
inline constexpr std::string_view kImageUriStart = "data:image/";
inline constexpr std::string_view kPayloadMarker = ";base64,";

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
// How the name of every section begins.
inline constexpr ustring_view kSectionPrefix = u"app:";

}  // namespace appserialization::textapp
