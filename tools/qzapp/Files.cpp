#include "tools/qzapp/Files.hpp"

#include <fmt/format.h>
#include <sys/stat.h>
#include <fl/i18n.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <system_error>

#include "tools/qzapp/Display.hpp"
#include "tools/qzapp/Errors.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;

std::string whyNotOpened(const std::error_code& code) {
    switch (code.value()) {
        case ENOENT:
        case ENOTDIR:
            return "there is no such file; check the name";
        case EISDIR:
            return "is a directory; give the name of a file";
        case EINVAL:
        case ENXIO:
            return "is not a regular file; copy its content into one";
        case EACCES:
            return "may not be read; check its permissions";
        default:
            return "cannot be opened (" + code.message() + ")";
    }
}

}  // namespace

FileDescriptor openFile(const FileName& file) {
    try {
        return FileDescriptor::openForReading(file.path);
    } catch (const std::system_error& e) {
        throw Error(file.shown, whyNotOpened(e.code()));
    }
}

void requireFile(const FileName& file) {
    static_cast<void>(openFile(file));
}

opc::FileKind kindOf(const FileName& file) {
    const FileDescriptor opened = openFile(file);
    return about(file, [&] {
        std::array<std::byte, opc::FileKind::kStart> start;
        return opc::FileKind::of(std::span(start).first(opened.readAt(start, 0)));
    });
}

std::uint64_t sizeOf(const FileName& file) {
    return about(file, [&] { return openFile(file).stamp().size; });
}

std::string readBytes(const FileName& file, std::uint64_t limit) {
    const FileDescriptor opened = openFile(file);
    return about(file, [&] {
        const std::uint64_t size = opened.stamp().size;
        if (size > limit) {
            throw Error(file.shown, fmt::format("holds {}, more than the limit of {}",
                                                byteCount(size), byteCount(limit)));
        }
        std::string bytes(size, '\0');
        const std::size_t count = opened.readAt(std::as_writable_bytes(std::span(bytes)), 0);
        if (count != size) throw Error(file.shown, "became shorter while it was read; try again");
        return bytes;
    });
}

foundation::ustring readText(const FileName& file, std::uint64_t limit) {
    const std::string bytes = readBytes(file, limit);
    try {
        return fl::i18n::utf8_to_ustring_strict(bytes);
    } catch (const fl::i18n::ConversionError& e) {
        throw Error(file.shown, fmt::format("not valid UTF-8 at byte {} ({}); save it as UTF-8",
                                            e.index(), placeOf(bytes, e.index())));
    }
}

std::string placeOf(std::string_view text, std::size_t offset) {
    const std::string_view before = text.substr(0, offset);
    const auto line = std::count(before.begin(), before.end(), '\n') + 1;
    const std::size_t lineStart = before.rfind('\n') + 1;  // 0 on the first line
    return fmt::format("line {}, column {}", line, before.size() - lineStart + 1);
}

void requireAbsent(const FileName& file, bool force) {
    struct stat found {};
    if (force || ::lstat(file.bytes().c_str(), &found) != 0) return;
    throw Error(file.shown, "exists already; give --force to replace it");
}

void requireNoLink(const FileName& file) {
    struct stat found {};
    if (::lstat(file.bytes().c_str(), &found) != 0 || !S_ISLNK(found.st_mode)) return;
    throw Error(file.shown, "is a symbolic link, which leads elsewhere; remove it");
}

}  // namespace qzapp
