#pragma once

#include <fl/FileDescriptor.hpp>
#include <opc/ZipArchive.hpp>

#include <string>
#include <vector>

#include "app/FileName.hpp"

namespace qzapp {

// Writes the items of a package to an empty file, open for reading and writing, in the form that
// opc::zip::repack() describes. Returns what the new file does not have any more, a phrase each.
// Throws Error if `from` is not a package, is signed, is damaged or changes meanwhile, or if `to` cannot
// be written; it then holds anything. `name` is its name in messages. With Losing::Nothing, throws also if
// bytes outside of the items, for example a program in front of them, or comments would be left out.
enum class Losing { WhatIsNoItem, Nothing };
std::vector<std::string> repackPackage(const FileName& from, opc::zip::Method method,
                                       fl::filesystem::FileDescriptor& to, const std::string& name,
                                       Losing losing = Losing::WhatIsNoItem);

}  // namespace qzapp
