#include <appserialization/AppMetadata.hpp>

#include <foundation/Diagnostics.hpp>

#include <cstddef>
#include <variant>

#include "metadata/Fields.hpp"

namespace appserialization {

using appmetadata::FieldRow;
using appmetadata::MetadataFieldEnum;
using appmetadata::MetadataPropertyVariant;

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
// The list setters copy the list before it replaces the old one, because an assignment in place
// could fail between two items and leave a mixture.
void AppMetadata::setRequiredProducts(const std::vector<ustring>& value) {
    requiredProducts_ = std::vector<ustring>(value);
}
void AppMetadata::setUserComponents(const std::vector<ustring>& value) {
    userComponents_ = std::vector<ustring>(value);
}
void AppMetadata::setImageRelativePaths(const std::vector<ustring>& value) {
    imageRelativePaths_ = std::vector<ustring>(value);
}

MetadataPropertyVariant AppMetadata::getFieldValue(MetadataFieldEnum field) const {
    const auto number = static_cast<std::size_t>(field);
    if (number >= appmetadata::kFields.size()) {
        foundation::core::diag::fatal("Should never get here", "AppMetadata", __LINE__,
                                      "appserialization::appmetadata::MetadataPropertyVariant "
                                      "appserialization::AppMetadata::getFieldValue("
                                      "appserialization::appmetadata::MetadataFieldEnum) const");
    }
    return std::visit(
        [this](const auto& access) { return MetadataPropertyVariant((this->*access.get)()); },
        appmetadata::kFields[number].access);
}

appmetadata::MetadataMap AppMetadata::toMap() const {
    appmetadata::MetadataMap map;
    for (const FieldRow& row : appmetadata::kFields)
        map[row.field] = getFieldValue(row.field);
    return map;
}

}  // namespace appserialization
