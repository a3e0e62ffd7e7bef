#pragma once

#include <fl/FileDescriptor.hpp>
#include <foundation/ustring.hpp>
#include <opc/FileKind.hpp>
#include <opc/Limits.hpp>
#include <opc/Streams.hpp>
#include <quillcode/CodePart.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

#include "app/FileName.hpp"
#include "package/Layout.hpp"

namespace qzapp {

// The largest code text and the largest screenshot that the package library accepts. kMaxXmlBytes
// is its limit for an XML part.
inline constexpr std::uint64_t kMaxContentBytes = quillcode::codepart::kMaxBytes;
static_assert(kMaxContentBytes == appserialization::layout::kMaxScreenshotBytes);
using opc::kMaxXmlBytes;

// All of these functions throw Error about the file.

// The file that the system knows by these bytes, which must be UTF-8. Opens nothing; see hold().
FileName fileNamed(const std::string& bytes);

// Why a file could not be opened for reading, and what to do about it.
std::string whyNotOpened(const std::error_code& code);
// Opens a regular file for reading. Refuses a directory, a pipe or a device without waiting for it.
fl::filesystem::FileDescriptor openFile(const FileName& file);
// Throws the Error of openFile() if the file cannot be opened, and does nothing else.
void requireFile(const FileName& file);
// Opens the file and keeps it open as long as a copy of the returned name exists. Reading by that
// name reads this very file, even if another one takes its place. Call it once for each file that
// is read, so that a verb reads one version of it.
FileName hold(const FileName& file);
// Throws if a file that is held open has been written to since hold(): what was read may then be a
// mix of two versions. Does nothing for a file that is not held open.
void requireUnchanged(const FileName& file);

// What the first bytes of the file say that it is.
opc::FileKind kindOf(const FileName& file);

std::uint64_t sizeOf(const FileName& file);

// The whole file, read to its end. Throws if it has more than `limit` bytes (before any memory is
// allocated for them, if the system knows the size), or changes while it is read: another number of
// bytes than the system says is a change, unless the system says 0, as for files in /proc.
std::string readBytes(const FileName& file, std::uint64_t limit);

// Reads a file to its end and passes it on in pieces of at most 256 KiB.
void readToEnd(const FileName& file, const opc::InputStream::Take& take);

// Whether two files have the same bytes. Reads them only if their sizes are the same.
bool haveSameContent(const FileName& a, const FileName& b);

// Copies the whole file into an empty one. Throws if it is found to change meanwhile, and
// std::system_error if it cannot be copied.
void copyBytes(const FileName& file, fl::filesystem::FileDescriptor& target);

// Like readBytes(), as text. Throws if the bytes are not valid UTF-8; the message gives line and
// column.
foundation::ustring readText(const FileName& file, std::uint64_t limit);

// "line 3, column 7": the place of the byte at `offset`, for messages. Columns count bytes, from 1.
std::string placeOf(std::string_view text, std::size_t offset);

}  // namespace qzapp
