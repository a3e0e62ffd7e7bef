#pragma once

#include <fl/FileDescriptor.hpp>
#include <opc/ZipArchive.hpp>

#include <string>
#include <vector>

#include "app/FileName.hpp"

namespace qzapp {

// For whom a package is repacked. git repacks what it is told to add, whoever made it, and nobody
// looks at what goes.
enum class RepackFor { People, History };

// Writes the items of a package to an empty file, open for reading and writing, in the form that
// opc::zip::repack() describes. Returns what the new file does not have any more, a phrase each.
// Throws Error if `from` is not a package, is signed, is damaged or changes meanwhile, or if `to`
// cannot be written; it then holds anything. `name` is its name in messages. For a history, throws
// also if bytes outside of the items, for example a program in front of them, or comments would be
// left out, and if the items are larger than 64 MiB and sixteen times the file, or than 512 MiB:
// git holds them in memory.
std::vector<std::string> repackPackage(const FileName& from, opc::zip::Method method,
                                       fl::filesystem::FileDescriptor& to, const std::string& name,
                                       RepackFor whom = RepackFor::People);

}  // namespace qzapp
