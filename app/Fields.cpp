#include "app/Fields.hpp"

#include <fmt/format.h>
#include <boost/variant.hpp>

#include <array>

#include "app/Shown.hpp"

namespace qzapp {
namespace {

using appserialization::AppMetadata;
namespace appmetadata = appserialization::appmetadata;

// The record's setters in the order of its fields: texts, then lists.
constexpr std::array<void (AppMetadata::*)(const ustring&), 11> kTextSetters = {
    &AppMetadata::setName,          &AppMetadata::setSummary,
    &AppMetadata::setAuthor,        &AppMetadata::setVersion,
    &AppMetadata::setDescription,   &AppMetadata::setScreenshotMode,
    &AppMetadata::setKVPKGVersion,  &AppMetadata::setMinimumSupportedKORVALRelease,
    &AppMetadata::setKORVALRelease, &AppMetadata::setUuid,
    &AppMetadata::setAppType,
};
constexpr std::array<void (AppMetadata::*)(const List&), 3> kListSetters = {
    &AppMetadata::setRequiredProducts,
    &AppMetadata::setUserComponents,
    &AppMetadata::setImageRelativePaths,
};
static_assert(kTextSetters.size() + kListSetters.size() == appmetadata::kFieldNames.size());
static_assert(static_cast<std::size_t>(Field::RequiredProducts) == kTextSetters.size());

std::size_t indexOf(Field field) {
    return static_cast<std::size_t>(field);
}

}  // namespace

std::span<const Field> allFields() {
    static constexpr auto kFields = [] {
        std::array<Field, appmetadata::kFieldNames.size()> all{};
        for (std::size_t i = 0; i < all.size(); ++i)
            all[i] = static_cast<Field>(i);
        return all;
    }();
    return kFields;
}

const char* nameOf(Field field) {
    return appmetadata::kFieldNames[indexOf(field)];
}

bool isList(Field field) {
    return indexOf(field) >= kTextSetters.size();
}

std::optional<Field> findField(std::string_view name) {
    for (const Field field : allFields()) {
        if (name == nameOf(field)) return field;
    }
    return std::nullopt;
}

std::string unknownField(std::string_view name) {
    std::string names;
    for (const Field field : allFields())
        names += (names.empty() ? "" : ", ") + std::string(nameOf(field));
    return fmt::format("unknown metadata field \"{}\"; the fields are {}", name, names);
}

FieldValue valueOf(const AppMetadata& record, Field field) {
    const auto value = record.getFieldValue(field);
    if (isList(field)) return boost::get<appmetadata::OptionalStringList>(value).value_or(List());
    return boost::get<appmetadata::OptionalString>(value).value_or(ustring());
}

void setField(AppMetadata& record, Field field, const FieldValue& value) {
    if (isList(field)) {
        (record.*kListSetters[indexOf(field) - kTextSetters.size()])(std::get<List>(value));
    } else {
        (record.*kTextSetters[indexOf(field)])(std::get<ustring>(value));
    }
}

}  // namespace qzapp
