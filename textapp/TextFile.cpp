#include "textapp/TextFile.hpp"

#include <appserialization/Exceptions.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <fl/FileDescriptor.hpp>
#include <fl/filesystem.hpp>
#include <fl/i18n.hpp>
#include <foundation/Exceptions.hpp>
#include <foundation/Shown.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <system_error>

namespace appserialization::textapp {

namespace {

using fl::filesystem::FileDescriptor;
using foundation::core::except::throwInternal;
using foundation::core::except::throwInternalWithNested;

// In bytes; small enough to stay in the cache between reading and decoding.
constexpr std::size_t kPiece = 256 * 1024;

// The most bytes of a UTF-8 sequence after its first.
constexpr std::size_t kMaxTrailBytes = 3;

constexpr const char* kChanged = "the file was changed while it was read; try again";

AppFileReaderGenericException failure(const ustring& fileName, const std::string& problem) {
    return {fileName, foundation::shown(fl::filesystem::path(fileName)) + ": " + problem};
}

[[noreturn]] void fail(const ustring& fileName, const std::string& problem) {
    throwInternal(failure(fileName, problem));
}

void requireReasonableSize(std::uint64_t size, const ustring& fileName) {
    if (size <= KAppMetadataReader::kLargestFile) return;
    fail(fileName, "the file has " + std::to_string(size) +
                       " bytes or more, but a text app may have at most " +
                       std::to_string(KAppMetadataReader::kLargestFile) +
                       "; check that it is a text app");
}

FileDescriptor openFile(const ustring& fileName) {
    try {
        return FileDescriptor::openForReading(fl::filesystem::path(fileName));
    } catch (const std::system_error&) {
        throwInternalWithNested(AppFileReaderInvalidFileName(fileName));
    }
}

bool isTrailByte(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

bool isLeadByte(char byte) {
    return static_cast<unsigned char>(byte) >= 0xC0;
}

// How many of the bytes can be decoded without knowing what follows them. A sequence, well-formed
// or not, starts with a lead byte and contains no other, so the bytes before a lead byte are
// complete.
std::size_t completeLength(std::string_view bytes) {
    std::size_t trail = 0;
    while (trail < bytes.size() && trail < kMaxTrailBytes &&
           isTrailByte(bytes[bytes.size() - 1 - trail])) {
        ++trail;
    }
    if (trail == bytes.size()) return bytes.size();
    const std::size_t before = bytes.size() - 1 - trail;
    return isLeadByte(bytes[before]) ? before : bytes.size();
}

// Reads until a read comes back short, because a file of which the system says that it is empty may
// have content. For any other file the system knows the size, and reading a different number of
// bytes means that the file was changed.
ustring decodeFile(const FileDescriptor& file, const ustring& fileName) {
    const std::uint64_t expectedSize = file.stamp().size;
    requireReasonableSize(expectedSize, fileName);
    if (!file.reaches(expectedSize)) fail(fileName, kChanged);
    ustring text;
    text.reserve(static_cast<std::size_t>(expectedSize));
    const auto buffer = std::make_unique_for_overwrite<char[]>(kPiece);
    std::size_t carried = 0;  // bytes of a sequence that the previous piece did not complete
    std::uint64_t offset = 0;
    for (bool atEnd = false; !atEnd;) {
        const std::span<char> room(buffer.get() + carried, kPiece - carried);
        const std::size_t got = file.readAt(std::as_writable_bytes(room), offset);
        atEnd = got < room.size();
        offset += got;
        requireReasonableSize(offset, fileName);
        const std::string_view bytes(buffer.get(), carried + got);
        const std::size_t decodable = atEnd ? bytes.size() : completeLength(bytes);
        text += fl::i18n::utf8_to_ustring(bytes.substr(0, decodable));
        carried = bytes.copy(buffer.get(), bytes.size() - decodable, decodable);
    }
    if (expectedSize != 0 && offset != expectedSize) fail(fileName, kChanged);
    return text;
}

}  // namespace

ustring readTextFile(const ustring& fileName) {
    const FileDescriptor file = openFile(fileName);
    try {
        return decodeFile(file, fileName);
    } catch (const std::system_error& error) {
        throwInternalWithNested(
            failure(fileName, "reading the file failed: " + error.code().message()));
    }
}

}  // namespace appserialization::textapp
