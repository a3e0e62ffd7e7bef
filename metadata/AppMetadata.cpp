#include <appserialization/AppMetadata.hpp>

#include <foundation/Diagnostics.hpp>

namespace appserialization {

namespace {

using appmetadata::MetadataFieldEnum;

constexpr auto kFieldCount = static_cast<std::int32_t>(appmetadata::kFieldNames.size());
static_assert(static_cast<std::int32_t>(MetadataFieldEnum::ImageRelativePaths) == kFieldCount - 1,
              "the fields and their names are one table");

}  // namespace

AppMetadata::AppMetadata() = default;
AppMetadata::AppMetadata(const AppMetadata& other) = default;
AppMetadata& AppMetadata::operator=(const AppMetadata& other) = default;
AppMetadata::~AppMetadata() = default;

boost::optional<ustring> AppMetadata::getName() const {
    return name_;
}
boost::optional<ustring> AppMetadata::getSummary() const {
    return summary_;
}
boost::optional<ustring> AppMetadata::getAuthor() const {
    return author_;
}
boost::optional<ustring> AppMetadata::getVersion() const {
    return version_;
}
boost::optional<ustring> AppMetadata::getDescription() const {
    return description_;
}
boost::optional<ustring> AppMetadata::getScreenshotMode() const {
    return screenshotMode_;
}
boost::optional<ustring> AppMetadata::getKVPKGVersion() const {
    return kvpkgVersion_;
}
boost::optional<ustring> AppMetadata::getMinimumSupportedKORVALRelease() const {
    return minimumSupportedKorvalRelease_;
}
boost::optional<ustring> AppMetadata::getKORVALRelease() const {
    return korvalRelease_;
}
boost::optional<ustring> AppMetadata::getUuid() const {
    return uuid_;
}
boost::optional<ustring> AppMetadata::getAppType() const {
    return appType_;
}
boost::optional<std::vector<ustring>> AppMetadata::getRequiredProducts() const {
    return requiredProducts_;
}
boost::optional<std::vector<ustring>> AppMetadata::getUserComponents() const {
    return userComponents_;
}
boost::optional<std::vector<ustring>> AppMetadata::getImageRelativePaths() const {
    return imageRelativePaths_;
}

void AppMetadata::setName(const ustring& value) {
    name_ = value;
}
void AppMetadata::setSummary(const ustring& value) {
    summary_ = value;
}
void AppMetadata::setAuthor(const ustring& value) {
    author_ = value;
}
void AppMetadata::setVersion(const ustring& value) {
    version_ = value;
}
void AppMetadata::setDescription(const ustring& value) {
    description_ = value;
}
void AppMetadata::setScreenshotMode(const ustring& value) {
    screenshotMode_ = value;
}
void AppMetadata::setKVPKGVersion(const ustring& value) {
    kvpkgVersion_ = value;
}
void AppMetadata::setMinimumSupportedKORVALRelease(const ustring& value) {
    minimumSupportedKorvalRelease_ = value;
}
void AppMetadata::setKORVALRelease(const ustring& value) {
    korvalRelease_ = value;
}
void AppMetadata::setUuid(const ustring& value) {
    uuid_ = value;
}
void AppMetadata::setAppType(const ustring& value) {
    appType_ = value;
}
// A list is copied before it replaces the old one: assigning in place can fail between two items.
void AppMetadata::setRequiredProducts(const std::vector<ustring>& value) {
    requiredProducts_ = std::vector<ustring>(value);
}
void AppMetadata::setUserComponents(const std::vector<ustring>& value) {
    userComponents_ = std::vector<ustring>(value);
}
void AppMetadata::setImageRelativePaths(const std::vector<ustring>& value) {
    imageRelativePaths_ = std::vector<ustring>(value);
}

appmetadata::MetadataPropertyVariant AppMetadata::getFieldValue(MetadataFieldEnum field) const {
    switch (field) {
        case MetadataFieldEnum::Name:
            return getName();
        case MetadataFieldEnum::Summary:
            return getSummary();
        case MetadataFieldEnum::Author:
            return getAuthor();
        case MetadataFieldEnum::Version:
            return getVersion();
        case MetadataFieldEnum::Description:
            return getDescription();
        case MetadataFieldEnum::ScreenshotMode:
            return getScreenshotMode();
        case MetadataFieldEnum::KVPKGVersion:
            return getKVPKGVersion();
        case MetadataFieldEnum::MinimumSupportedKORVALRelease:
            return getMinimumSupportedKORVALRelease();
        case MetadataFieldEnum::KORVALRelease:
            return getKORVALRelease();
        case MetadataFieldEnum::Uuid:
            return getUuid();
        case MetadataFieldEnum::AppType:
            return getAppType();
        case MetadataFieldEnum::RequiredProducts:
            return getRequiredProducts();
        case MetadataFieldEnum::UserComponents:
            return getUserComponents();
        case MetadataFieldEnum::ImageRelativePaths:
            return getImageRelativePaths();
    }
    foundation::core::diag::fatal("Should never get here", "AppMetadata", __LINE__,
                                  "appserialization::appmetadata::MetadataPropertyVariant "
                                  "appserialization::AppMetadata::getFieldValue("
                                  "appserialization::appmetadata::MetadataFieldEnum) const");
}

appmetadata::MetadataMap AppMetadata::toMap() const {
    appmetadata::MetadataMap map;
    for (std::int32_t number = 0; number < kFieldCount; ++number) {
        const auto field = static_cast<MetadataFieldEnum>(number);
        map[field] = getFieldValue(field);
    }
    return map;
}

}  // namespace appserialization
