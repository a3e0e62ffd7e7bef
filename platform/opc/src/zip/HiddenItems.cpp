#include "platform/opc/src/zip/HiddenItems.hpp"

#include <opc/Exception.hpp>

#include "platform/opc/src/zip/CompressionMethods.hpp"
#include "platform/opc/src/zip/ZipError.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace opc::zip {

namespace {

// Items up to this size are looked through at opening. Larger ones are not, whether their data or
// their content is large: they would make opening a package take as long as reading it.
constexpr std::uint64_t kLargestSmall = std::uint64_t{1} << 20;

bool isLarge(const ZipItem& item) {
    return std::max(item.compressedSize, item.size) > kLargestSmall;
}

constexpr std::size_t kBuffer = std::size_t{64} << 10;

// The signature that the data must hold if a streaming reader ends it too early. It finds the end
// of stored data only by the descriptor. A deflate stream ends by itself, and the descriptor after
// it may have no signature, but the local header of a hidden item follows sooner or later.
std::uint32_t signatureBehindEnd(Method method) {
    return rowOf(method).endsItself ? format::local::kSignature : format::descriptor::kSignature;
}

void refuseItemsInData(const ZipArchive& archive, const ZipItem& item, ArchiveBytes& bytes) {
    const std::uint64_t end = item.dataOffset + item.compressedSize;
    if (!bytes.find(signatureBehindEnd(item.method), item.dataOffset, end)) return;
    std::vector<std::byte> buffer(kBuffer);
    const auto stream = archive.read(item);
    while (stream->read(buffer) > 0) {
    }
}

}  // namespace

void refuseHiddenItem(std::uint64_t from, std::uint64_t to, ArchiveBytes& bytes,
                      const fl::filesystem::path& file) {
    const auto found = bytes.find(format::local::kSignature, from, to);
    if (!found) return;
    refuseZip(ZipRule::Hidden, file,
              "there is an item at offset " + std::to_string(*found) +
                  " that the directory does not list: readers could see two different packages" +
                  kGetAgain);
}

void refuseItemsInSmallData(const ZipArchive& archive, ArchiveBytes& bytes) {
    for (const ZipItem& item : archive.items()) {
        if (!item.hasDescriptor || isLarge(item)) continue;
        try {
            refuseItemsInData(archive, item, bytes);
        } catch (const Exception& fault) {
            throw ZipRefusal(ZipRule::Hidden, fault.what());
        }
    }
}

void refuseItemsInLargeData(const ZipArchive& archive, const ZipItem& item) {
    if (!item.hasDescriptor || !isLarge(item)) return;
    aboutFile(archive.path(), [&] {
        ArchiveBytes bytes(archive.file(), archive.stamp().size, 0);
        refuseItemsInData(archive, item, bytes);
    });
}

}  // namespace opc::zip
