#pragma once

#include <opc/PackageTables.hpp>

#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace qzapp {

// The names of items that a package itself speaks of: its tables, the parts that have a content type of
// their own or that a relationship leads to, and the usual names of an app's parts. They tell which of
// two names of a damaged item is right.
class KnownNames {
public:
    KnownNames();
    void add(opc::model::ContentTypesTable types);
    void add(const opc::model::RelationshipsTable& relationships);

    // Whether the package speaks of `name`, and not of `other`; where it does so of neither, whether
    // `name` alone would be a part.
    bool prefers(std::string_view name, std::string_view other) const;

private:
    int rankOf(std::string_view name) const;

    std::set<std::string, std::less<>> names_;  // as items have them
    std::optional<opc::model::ContentTypesTable> types_;
};

}  // namespace qzapp
