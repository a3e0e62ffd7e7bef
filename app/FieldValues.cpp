#include "app/FieldValues.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <boost/optional.hpp>
#include <boost/variant.hpp>
#include <fl/i18n.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <utility>

#include "app/Suggestion.hpp"
#include "metadata/Fields.hpp"

namespace qzapp {
namespace {

using appserialization::AppMetadata;
namespace appmetadata = appserialization::appmetadata;

const appmetadata::FieldRow& rowOf(Field field) {
    return appmetadata::kFields.at(static_cast<std::size_t>(field));
}

}  // namespace

std::span<const Field> allFields() {
    static constexpr auto kFields = [] {
        std::array<Field, appmetadata::kFieldNames.size()> all{};
        for (std::size_t i = 0; i < all.size(); ++i)
            all[i] = appmetadata::kFields[i].field;
        return all;
    }();
    return kFields;
}

const char* nameOf(Field field) {
    return appmetadata::kFieldNames.at(static_cast<std::size_t>(field));
}

bool isList(Field field) {
    return std::holds_alternative<appmetadata::ListAccess>(rowOf(field).access);
}

std::optional<Field> findField(std::string_view name) {
    for (const Field field : allFields()) {
        if (name == nameOf(field)) return field;
    }
    return std::nullopt;
}

std::optional<Field> findFieldInAnyCase(std::string_view name) {
    for (const Field field : allFields()) {
        if (isSameInAnyCase(name, nameOf(field))) return field;
    }
    return std::nullopt;
}

std::string unknownField(std::string_view name) {
    std::vector<std::string_view> names;
    for (const Field field : allFields())
        names.emplace_back(nameOf(field));
    return fmt::format(
        "unknown metadata field \"{}\"{}", name,
        didYouMean(name, names, fmt::format("; the fields are {}", fmt::join(names, ", "))));
}

EditedList edited(Field field, List items, const ListEdit& edit) {
    EditedList result{std::move(items), {}};
    for (const ustring& item : edit.removed) {
        if (std::erase(result.items, item) > 0) continue;
        const std::string shown = fl::i18n::to_display(item);
        std::vector<std::string> present;
        std::ranges::transform(result.items, std::back_inserter(present),
                               [](const ustring& text) { return fl::i18n::to_display(text); });
        result.notes.push_back(fmt::format(
            "{} does not hold \"{}\"{}", nameOf(field), shown,
            didYouMean(shown, std::vector<std::string_view>(present.begin(), present.end()), "")));
    }
    for (const ustring& item : edit.added) {
        if (std::ranges::find(result.items, item) == result.items.end()) {
            result.items.push_back(item);
        } else {
            result.notes.push_back(
                fmt::format("{} already holds \"{}\"", nameOf(field), fl::i18n::to_display(item)));
        }
    }
    return result;
}

FieldValue valueOf(const AppMetadata& record, Field field) {
    const auto value = record.getFieldValue(field);
    if (isList(field)) return boost::get<appmetadata::OptionalStringList>(value).value_or(List());
    return boost::get<appmetadata::OptionalString>(value).value_or(ustring());
}

void setField(AppMetadata& record, Field field, const FieldValue& value) {
    if (const auto* list = std::get_if<appmetadata::ListAccess>(&rowOf(field).access)) {
        (record.*list->set)(std::get<List>(value));
    } else {
        (record.*
         std::get<appmetadata::TextAccess>(rowOf(field).access).set)(std::get<ustring>(value));
    }
}

}  // namespace qzapp
