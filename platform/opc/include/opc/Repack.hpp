#pragma once

#include <foundation/Export.hpp>
#include <opc/ZipArchive.hpp>

#include <fl/FileDescriptor.hpp>
#include <fl/filesystem.hpp>

#include <cstdint>

namespace opc::zip {

// What a repacked archive does not have any more.
struct PLATFORM_API LeftOut {
    std::uint64_t bytes = 0;         // in front of the items, between them, and after the archive
    std::uint64_t commentBytes = 0;  // of the archive's comment
    // The numbers of items that had a comment, and that had an extra field other than those by
    // which writers lay out a file: zip64 sizes, padding and tables of slices.
    std::uint64_t comments = 0;
    std::uint64_t extraFields = 0;
};

// Writes the items of an archive to `file`, an empty file that is open for reading and writing, in
// a form that depends on their names and contents alone: in the order of the bytes of their names,
// each with the earliest time that the zip format has, without attributes, with nothing between
// them and no extra field that is not needed. Directories and empty items are stored, all others
// packed by `method`. An item is deflated in any case if its stored bytes would lead some reader to
// other items (a zip file in a zip file may).
//
// With Method::Stored, the same items give the same bytes with every version of this library. With
// Method::Deflated that holds for one version. Either way, what is written can be opened again, and
// writing it anew gives the same bytes.
//
// `name` is that of the new file in messages. Memory does not grow with the size of an item. Throws
// opc::Exception if an item is damaged or the file cannot be written; the file then holds anything.
PLATFORM_API LeftOut repack(const ZipArchive& archive, Method method,
                            fl::filesystem::FileDescriptor& file, const fl::filesystem::path& name);

}  // namespace opc::zip
