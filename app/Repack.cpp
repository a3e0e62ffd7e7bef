#include "app/Repack.hpp"

#include <fl/filesystem.hpp>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>
#include <opc/Package.hpp>
#include <opc/Repack.hpp>

#include <algorithm>
#include <cstdint>

#include "app/Error.hpp"
#include "app/InputFiles.hpp"
#include "app/Progress.hpp"
#include "app/Signatures.hpp"
#include "app/VisibleText.hpp"
#include "app/WithPackage.hpp"

namespace qzapp {
namespace {

// A signature stays valid in another packing, but what it says of the packing may not: other
// programs would ask why the file is another one than was signed.
void requireUnsigned(const FileName& file) {
    const bool isSigned = withPackage(
        file, [](const opc::model::Package& package) { return signatures::isSigned(package); });
    if (!isSigned) return;
    throw Error(file.shown,
                "is signed, and stays as it was signed; to repack a copy without its signatures, "
                "remove them with \"qzapp edit --drop-signature\"");
}

constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20;
constexpr std::uint64_t kAlwaysInHistory = 64 * kMebibyte;
constexpr std::uint64_t kMostInHistory = 512 * kMebibyte;
constexpr std::uint64_t kMostGrowth = 16;

void requireModestSize(const FileName& file, const opc::zip::ZipArchive& archive) {
    const std::uint64_t packed = sizeOf(file);
    std::uint64_t size = 0;
    for (const opc::zip::ZipItem& item : archive.items())
        size += std::min(item.size, kMostInHistory + 1);
    if (size <= kAlwaysInHistory || (size <= kMostInHistory && size / kMostGrowth <= packed))
        return;
    throw Error(file.shown, "holds " + byteCount(size) + ", too much for a history to store");
}

std::string itemCount(std::uint64_t number) {
    return number == 1 ? "1 item" : foundation::shownCount(number) + " items";
}

std::vector<std::string> phrases(const opc::zip::LeftOut& leftOut) {
    std::vector<std::string> all;
    if (leftOut.bytes != 0) {
        all.push_back(byteCount(leftOut.bytes) + " in front of, between or after the items");
    }
    if (leftOut.commentBytes != 0) all.emplace_back("the comment of the zip file");
    if (leftOut.comments != 0) all.push_back("the comments of " + itemCount(leftOut.comments));
    if (leftOut.extraFields != 0)
        all.push_back("the extra fields of " + itemCount(leftOut.extraFields));
    return all;
}

}  // namespace

std::vector<std::string> repackPackage(const FileName& from, opc::zip::Method method,
                                       fl::filesystem::FileDescriptor& to, const std::string& name,
                                       RepackFor whom) {
    requireUnsigned(from);
    const Progress progress(sizeOf(from));
    const auto archive = about(from, [&] { return opc::zip::ZipArchive::open(from.path); });
    if (whom == RepackFor::History) requireModestSize(from, *archive);
    // git calls a file by whatever bytes its name has.
    const FileName target{name, fl::filesystem::path(fl::i18n::utf8_to_ustring(name))};
    const auto leftOut =
        about(from, target, [&] { return opc::zip::repack(*archive, method, to, target.path); });
    requireUnchanged(from);
    const bool losesContent =
        leftOut.bytes != 0 || leftOut.commentBytes != 0 || leftOut.comments != 0;
    if (whom == RepackFor::History && losesContent)
        throw Error(from.shown, "holds bytes or comments beside its items, which stay as they are");
    return phrases(leftOut);
}

}  // namespace qzapp
