#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/salvage/Loss.hpp"

#include <map>
#include <span>
#include <string>
#include <vector>

namespace opc::zip {

using NameConflicts = std::map<const ZipItem*, Loss>;

// The items to drop because some reader takes them for another one, or for the folder of another,
// and why: an archive that is made of `items` must not mean two things. Of two, the one whose name
// is `expected` stays, then one whose name is plain. Two plain names that conflict as folder and
// item are left to the rules of packages.
NameConflicts nameConflicts(const std::vector<ZipItem>& items,
                            std::span<const std::string> expected);

}  // namespace opc::zip
