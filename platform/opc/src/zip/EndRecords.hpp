#pragma once

#include "platform/opc/src/zip/ArchiveBytes.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <fl/filesystem.hpp>

#include <cstddef>
#include <cstdint>
#include <string>

namespace opc::zip {

// The size of the tail that ArchiveBytes must hold to find the end record: the record itself and
// the longest comment, or as many stray bytes, after it.
inline constexpr std::size_t kEndSearch = format::end::kRecordSize + format::end::kLongestComment;

struct ArchiveEnd {
    format::DirectoryRecord directory;
    std::string comment;
    std::uint64_t fileEnd;  // where the comment ends
};

// Finds the one end record and reads it and its zip64 records. Throws opc::Exception when there is
// none, when there is a second one that a reader might take, and when the directory that they
// describe does not end exactly where they start.
ArchiveEnd readArchiveEnd(ArchiveBytes& bytes, const fl::filesystem::path& file);

}  // namespace opc::zip
