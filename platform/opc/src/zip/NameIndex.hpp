#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/FoldedName.hpp"

#include <fl/filesystem.hpp>

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace opc::zip {

// The items of an archive by their names. No two of them may have names that a reader could take for
// the same.
class NameIndex {
public:
    NameIndex() = default;
    // Of `items`, which must stay where they are. Throws opc::Exception about `file` for two names
    // that are equal in FoldedLess order.
    NameIndex(const std::vector<ZipItem>& items, const fl::filesystem::path& file);
    // Enters those that some readers resolve to other names under these names too. Throws
    // opc::Exception likewise.
    void addResolvedNames(const fl::filesystem::path& file);

    // In FoldedLess order.
    const std::vector<const ZipItem*>& inOrder() const noexcept { return byName_; }
    // The item whose name is equal in that order, or null.
    const ZipItem* find(std::string_view name) const noexcept;
    // The item of which this is a name, or may be one to a reader that resolves names; or null.
    const ZipItem* findSimilar(std::string_view name) const;

private:
    const ZipItem* findEntered(std::string_view name) const noexcept;

    std::vector<const ZipItem*> byName_;
    std::map<std::string, const ZipItem*, FoldedLess> byResolvedName_;
};

}  // namespace opc::zip
