#pragma once

#include <appserialization/AppMetadata.hpp>

#include <algorithm>

#include "fuzz/Fuzzing.hpp"

// Metadata records, whichever field is meant.
namespace fuzz {

// Calls `visit` with each text of a value.
template <class Visit>
void visitTexts(const appserialization::appmetadata::MetadataPropertyVariant& value, Visit visit) {
    namespace appmetadata = appserialization::appmetadata;
    if (const auto* const text = boost::get<appmetadata::OptionalString>(&value)) {
        if (*text) visit(**text);
    } else if (const auto& list = boost::get<appmetadata::OptionalStringList>(value)) {
        std::for_each(list->begin(), list->end(), visit);
    }
}

// Whether there is a value. It may be empty.
inline bool isPresent(const appserialization::appmetadata::MetadataPropertyVariant& value) {
    return boost::apply_visitor([](const auto& optional) { return optional.has_value(); }, value);
}

// Requires what every reader promises of its record.
inline void requireComplete(const appserialization::AppMetadata& record) {
    for (const auto& [field, value] : record.toMap())
        require(isPresent(value), "every field is present");
}

}  // namespace fuzz
