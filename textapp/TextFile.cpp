#include "textapp/TextFile.hpp"

#include <appserialization/Exceptions.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <fl/FileDescriptor.hpp>
#include <fl/filesystem.hpp>
#include <foundation/Exceptions.hpp>
#include <foundation/Shown.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <system_error>

#include "textapp/AppendixScanner.hpp"

namespace appserialization::textapp {

namespace {

using fl::filesystem::FileDescriptor;
using foundation::core::except::throwInternal;
using foundation::core::except::throwInternalWithNested;

// In bytes; small enough to stay in the cache between reading and searching.
constexpr std::size_t kPiece = 256 * 1024;

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

// Reads until a read comes back short, because a file of which the system says that it is empty may
// have content. For any other file the system knows the size, and reading a different number of
// bytes means that the file was changed.
FileText readBytes(const FileDescriptor& file, const ustring& fileName, SectionFinder& sections) {
    const std::uint64_t expectedSize = file.stamp().size;
    requireReasonableSize(expectedSize, fileName);
    if (!file.reaches(expectedSize)) fail(fileName, kChanged);
    // One byte more than there may be shows that the file is too long.
    const std::size_t most =
        (expectedSize == 0 ? KAppMetadataReader::kLargestFile : expectedSize) + 1;
    FileText text;
    text.reserve(expectedSize + 1);
    for (bool atEnd = false; !atEnd;) {
        const std::size_t end = text.size();
        text.resize(std::min(end + kPiece, most), boost::container::default_init);
        const std::span room(text.data() + end, text.size() - end);
        const std::size_t got = file.readAt(std::as_writable_bytes(room), end);
        atEnd = got < room.size() || text.size() == most;
        text.resize(end + got);
        sections.search({text.data(), text.size()});
    }
    requireReasonableSize(text.size(), fileName);
    if (expectedSize != 0 && text.size() != expectedSize) fail(fileName, kChanged);
    return text;
}

}  // namespace

FileText readTextFile(const ustring& fileName, SectionFinder& sections) {
    const FileDescriptor file = openFile(fileName);
    try {
        return readBytes(file, fileName, sections);
    } catch (const std::system_error& error) {
        throwInternalWithNested(
            failure(fileName, "reading the file failed: " + error.code().message()));
    }
}

}  // namespace appserialization::textapp
