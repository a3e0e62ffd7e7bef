#include <opc/ZipPhysicalPackage.hpp>

#include <opc/Exception.hpp>
#include <opc/ZipArchive.hpp>

#include <fl/FileDescriptor.hpp>
#include <fl/ReplacementFile.hpp>

#include "platform/opc/src/zip/ZipError.hpp"

#include <optional>

namespace opc::zippackage {

// What an object shares with its copies.
struct ZipPhysicalPackage::Binding {
    std::optional<fl::filesystem::FileStamp> stamp;  // of the file that was opened or saved
    std::weak_ptr<const zip::ZipArchive> archive;    // alive while some package has it open
};

ZipPhysicalPackage::ZipPhysicalPackage(const foundation::ustring& path, bool allowZip64)
    : ZipPhysicalPackage(fl::filesystem::path(path), allowZip64) {}

ZipPhysicalPackage::ZipPhysicalPackage(const fl::filesystem::path& path, bool allowZip64)
    : path_(path.empty() ? path : fl::filesystem::absolute(path)),
      allowZip64_(allowZip64),
      binding_(std::make_shared<Binding>()) {}

bool ZipPhysicalPackage::isBound() const noexcept {
    return binding_->stamp.has_value();
}

bool ZipPhysicalPackage::isAt(const fl::filesystem::path& name) const {
    if (!isBound()) return false;
    const auto found = fl::filesystem::findStamp(name);
    return found && found->device == binding_->stamp->device &&
           found->inode == binding_->stamp->inode;
}

std::shared_ptr<const zip::ZipArchive> ZipPhysicalPackage::openArchive() const {
    if (auto archive = binding_->archive.lock()) return archive;
    auto archive = openByName();
    if (isBound() && archive->stamp() != *binding_->stamp) throwChanged();
    binding_->stamp = archive->stamp();
    binding_->archive = archive;
    return archive;
}

std::shared_ptr<const zip::ZipArchive> ZipPhysicalPackage::openByName() const {
    try {
        return zip::ZipArchive::open(path_);
    } catch (const model::PackageNotFound&) {
        if (isBound()) throwChanged();
        throw;
    }
}

void ZipPhysicalPackage::requireNoOtherFile() const {
    if (!isBound()) return;
    const auto found = zip::aboutFile(path_, [&] { return fl::filesystem::findStamp(path_); });
    if (found && *found != *binding_->stamp) throwChanged();
}

void ZipPhysicalPackage::throwChanged() const {
    zip::throwZipError(path_, fl::filesystem::kChangedMeanwhile);
}

void ZipPhysicalPackage::bindTo(const fl::filesystem::FileStamp& saved) const noexcept {
    binding_->stamp = saved;
    binding_->archive.reset();
}

}  // namespace opc::zippackage
