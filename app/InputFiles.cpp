#include "app/InputFiles.hpp"

#include <fmt/format.h>
#include <fl/filesystem.hpp>
#include <fl/i18n.hpp>
#include <foundation/SaveWatch.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <span>
#include <system_error>
#include <utility>
#include <vector>

#include "app/Error.hpp"
#include "app/Sha256.hpp"
#include "app/VisibleText.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;

[[noreturn]] void throwChanged(const FileName& file) {
    throw Error(file.shown, "was changed while it was read; try again",
                std::errc::device_or_resource_busy);
}

[[noreturn]] void throwTooLarge(const FileName& file, const std::string& size,
                                std::uint64_t limit) {
    throw Error(file.shown,
                fmt::format("holds {}more than the limit of {}", size, byteCount(limit)));
}

constexpr std::size_t kReadBytes = std::size_t{256} << 10;

// Room for the content of a file whose size the system does not know. It is doubled until the
// content fits.
constexpr std::size_t kFirstRoom = std::size_t{64} << 10;

// All bytes of a file that should have `size` of them; if that is 0, it may have any number. Stops
// when there are more than expected, or more than `limit`.
std::string readAll(const FileDescriptor& file, std::uint64_t size, std::uint64_t limit) {
    // There is room for one byte more than expected, so that a file that has grown is noticed.
    std::string bytes(size == 0 ? kFirstRoom : size + 1, '\0');
    std::size_t end = 0;
    while (true) {
        end += file.readAt(std::as_writable_bytes(std::span(bytes).subspan(end)), end);
        if (end < bytes.size() || size != 0 || end > limit) break;
        bytes.resize(std::min<std::uint64_t>(2 * end, limit + 1));
    }
    bytes.resize(end);
    return bytes;
}

}  // namespace

FileName fileNamed(const std::string& bytes) {
    try {
        return {bytes, fl::filesystem::path::fromBytes(bytes)};
    } catch (const fl::i18n::ConversionError& e) {
        throw Error(bytes,
                    fmt::format("the file's name is not valid UTF-8 at byte {}; rename the file",
                                e.index()));
    }
}

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

FileDescriptor openFile(const FileName& file) {
    try {
        return FileDescriptor::openForReading(file.path);
    } catch (const std::system_error& e) {
        throw Error(file.shown, whyNotOpened(e.code()), e.code());
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

FileName hold(const FileName& file) {
    FileDescriptor opened = openFile(file);
    return about(file, [&] {
        const auto stamp = opened.stamp();
        const auto held = std::make_shared<HeldFile>(HeldFile{std::move(opened), stamp});
        return FileName{file.shown, held->file.privateName(file.path.filename()), held,
                        file.isStream};
    });
}

void requireUnchanged(const FileName& file) {
    if (!file.held || about(file, [&] { return file.held->file.stamp(); }) == file.held->stamp)
        return;
    throwChanged(file);
}

std::uint64_t sizeOf(const FileName& file) {
    return about(file, [&] { return openFile(file).stamp().size; });
}

std::string readBytes(const FileName& file, std::uint64_t limit) {
    const FileDescriptor opened = openFile(file);
    return about(file, [&] {
        const auto stamp = opened.stamp();
        const std::uint64_t size = stamp.size;
        if (size > limit) throwTooLarge(file, byteCount(size) + ", ", limit);
        if (!opened.reaches(size)) throwChanged(file);
        std::string bytes = readAll(opened, size, limit);
        if (size != 0 && bytes.size() != size) throwChanged(file);
        if (bytes.size() > limit) throwTooLarge(file, "", limit);
        if (opened.stamp() != stamp) throwChanged(file);
        return bytes;
    });
}

void readToEnd(const FileName& file, const opc::InputStream::Take& take) {
    const auto opened = openFile(file);
    about(file, [&] {
        std::vector<std::byte> buffer(kReadBytes);
        std::uint64_t offset = 0;
        while (const std::size_t count = opened.readAt(buffer, offset)) {
            foundation::SaveWatch::advance(0);  // a part of the save that it is done for
            take(std::span(buffer).first(count));
            offset += count;
        }
    });
}

bool haveSameContent(const FileName& a, const FileName& b) {
    const auto hashOf = [](const FileName& file) {
        Sha256 sum;
        readToEnd(file, [&](std::span<const std::byte> bytes) { sum.update(bytes); });
        return sum.hex();
    };
    return sizeOf(a) == sizeOf(b) && hashOf(a) == hashOf(b);
}

void copyBytes(const FileName& file, FileDescriptor& target) {
    const FileDescriptor opened = openFile(file);
    const std::uint64_t size = opened.stamp().size;
    if (size == 0) {
        const std::string bytes = readBytes(file, kMaxContentBytes);
        target.writeAt(std::as_bytes(std::span(bytes)), 0);
    } else {
        target.copyFrom(opened, 0, size, 0);
        if (opened.reaches(size + 1)) throwChanged(file);
    }
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

}  // namespace qzapp
