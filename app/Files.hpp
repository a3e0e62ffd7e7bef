#pragma once

#include <fl/FileDescriptor.hpp>
#include <foundation/ustring.hpp>
#include <opc/FileKind.hpp>
#include <opc/Limits.hpp>
#include <quillcode/CodePart.hpp>

#include <cstdint>
#include <string>
#include <string_view>

#include "app/FileName.hpp"
#include "package/Layout.hpp"

namespace qzapp {

// The most that the package library takes as code text or screenshot, and as a part of XML.
inline constexpr std::uint64_t kMaxContentBytes = quillcode::codepart::kMaxBytes;
static_assert(kMaxContentBytes == appserialization::layout::kMaxScreenshotBytes);
using opc::kMaxXmlBytes;

// All of these throw Error about the file.

// The file that the system knows by these bytes, which must be UTF-8.
FileName fileNamed(const std::string& bytes);

// Opens a regular file for reading; never blocks on anything else.
fl::filesystem::FileDescriptor openFile(const FileName& file);
// The same, for the sake of the error alone.
void requireFile(const FileName& file);
// Opens the file and keeps it open. Whoever reads through the name that is returned reads this very file,
// even when another one takes its place. To be called once for each file that is read.
FileName hold(const FileName& file);
// Throws when a file that is held was written to since it was opened: what was read of it may be a mix.
void requireUnchanged(const FileName& file);

// Where files go that nobody is to see, and one without a name in it. An Error about what is kept
// there, `shown`, when that cannot be.
std::string temporaryFolder();
fl::filesystem::FileDescriptor makeNamelessFile(const std::string& shown);
[[noreturn]] void throwNotKept(const std::string& shown, const std::string& reason);

// What it is by its first bytes.
opc::FileKind kindOf(const FileName& file);

std::uint64_t sizeOf(const FileName& file);

// The whole file, which may hold at most `limit` bytes.
std::string readBytes(const FileName& file, std::uint64_t limit);

// The same as text; bytes that are not valid UTF-8 are refused.
foundation::ustring readText(const FileName& file, std::uint64_t limit);

// "line 3, column 7" of a byte in a text.
std::string placeOf(std::string_view text, std::size_t offset);

}  // namespace qzapp
