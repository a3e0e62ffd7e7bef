#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/ustring.hpp>

#include <array>
#include <cstddef>
#include <variant>
#include <vector>

// The fields of the record with their getters and setters, in one table. Whatever handles a record
// field by field, here and in the front ends, goes through it, so a new field is one more row.
namespace appserialization::appmetadata {

// Gets and sets a field that is a text.
struct TextAccess {
    OptionalString (AppMetadata::*get)() const;
    void (AppMetadata::*set)(const ustring&);
};
// Gets and sets a field that is a list.
struct ListAccess {
    OptionalStringList (AppMetadata::*get)() const;
    void (AppMetadata::*set)(const std::vector<ustring>&);
};
struct FieldRow {
    MetadataFieldEnum field;
    std::variant<TextAccess, ListAccess> access;
};

// The rows are in the order of the fields' numbers, so that kFields[number] is the field's row.
inline constexpr std::array kFields = {
    FieldRow{MetadataFieldEnum::Name, TextAccess{&AppMetadata::getName, &AppMetadata::setName}},
    FieldRow{MetadataFieldEnum::Summary,
             TextAccess{&AppMetadata::getSummary, &AppMetadata::setSummary}},
    FieldRow{MetadataFieldEnum::Author,
             TextAccess{&AppMetadata::getAuthor, &AppMetadata::setAuthor}},
    FieldRow{MetadataFieldEnum::Version,
             TextAccess{&AppMetadata::getVersion, &AppMetadata::setVersion}},
    FieldRow{MetadataFieldEnum::Description,
             TextAccess{&AppMetadata::getDescription, &AppMetadata::setDescription}},
    FieldRow{MetadataFieldEnum::ScreenshotMode,
             TextAccess{&AppMetadata::getScreenshotMode, &AppMetadata::setScreenshotMode}},
    FieldRow{MetadataFieldEnum::KVPKGVersion,
             TextAccess{&AppMetadata::getKVPKGVersion, &AppMetadata::setKVPKGVersion}},
    FieldRow{MetadataFieldEnum::MinimumSupportedKORVALRelease,
             TextAccess{&AppMetadata::getMinimumSupportedKORVALRelease,
                        &AppMetadata::setMinimumSupportedKORVALRelease}},
    FieldRow{MetadataFieldEnum::KORVALRelease,
             TextAccess{&AppMetadata::getKORVALRelease, &AppMetadata::setKORVALRelease}},
    FieldRow{MetadataFieldEnum::Uuid, TextAccess{&AppMetadata::getUuid, &AppMetadata::setUuid}},
    FieldRow{MetadataFieldEnum::AppType,
             TextAccess{&AppMetadata::getAppType, &AppMetadata::setAppType}},
    FieldRow{MetadataFieldEnum::RequiredProducts,
             ListAccess{&AppMetadata::getRequiredProducts, &AppMetadata::setRequiredProducts}},
    FieldRow{MetadataFieldEnum::UserComponents,
             ListAccess{&AppMetadata::getUserComponents, &AppMetadata::setUserComponents}},
    FieldRow{MetadataFieldEnum::ImageRelativePaths,
             ListAccess{&AppMetadata::getImageRelativePaths, &AppMetadata::setImageRelativePaths}},
};
static_assert(kFields.size() == kFieldNames.size(), "each field has a name");
static_assert(
    [] {
        for (std::size_t i = 0; i < kFields.size(); ++i) {
            if (static_cast<std::size_t>(kFields[i].field) != i) return false;
        }
        return true;
    }(),
    "the rows are in the order of the fields' numbers");

}  // namespace appserialization::appmetadata
