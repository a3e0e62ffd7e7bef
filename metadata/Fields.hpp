#pragma once

#include <appserialization/AppMetadata.hpp>

#include <array>
#include <cstddef>
#include <variant>
#include <vector>

// The fields of the record in one table, by which all of it that goes field by field works.
namespace appserialization::appmetadata {

struct TextAccess {
    OptionalString (AppMetadata::*get)() const;
    void (AppMetadata::*set)(const ustring&);
};
struct ListAccess {
    OptionalStringList (AppMetadata::*get)() const;
    void (AppMetadata::*set)(const std::vector<ustring>&);
};
struct FieldRow {
    MetadataFieldEnum field;
    std::variant<TextAccess, ListAccess> access;
};

// In the order of the fields' numbers and names.
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
    "the fields stand in the order of their numbers");

}  // namespace appserialization::appmetadata
