#pragma once

#include <appserialization/AppMetadata.hpp>

#include <string>
#include <vector>

namespace test_support {

// The names of the fields in which two records differ, which say more than a print of both.
inline std::vector<std::string> differingFields(const appserialization::AppMetadata& a,
                                                const appserialization::AppMetadata& b) {
    std::vector<std::string> names;
    for (const auto& [field, value] : a.toMap()) {
        if (value == b.getFieldValue(field)) continue;
        names.emplace_back(
            appserialization::appmetadata::kFieldNames.at(static_cast<std::size_t>(field)));
    }
    return names;
}

}  // namespace test_support
