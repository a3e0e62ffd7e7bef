#include "package/PackagedAppFile.hpp"

#include <appserialization/Exceptions.hpp>
#include <foundation/Exceptions.hpp>
#include <opc/PartName.hpp>

#include <utility>

#include "package/Layout.hpp"

namespace appserialization {

using opc::qzservices::CorePropertiesManager;
using opc::qzservices::DeterministicMode;

PackagedAppFile::PackagedAppFile(ustring fileName)
    : fileName_(std::move(fileName)), physicalPackage_(fileName_, true) {}
PackagedAppFile::PackagedAppFile(ustring fileName, const opc::zippackage::ZipPhysicalPackage& file)
    : fileName_(std::move(fileName)), physicalPackage_(file) {}
PackagedAppFile::~PackagedAppFile() = default;

void PackagedAppFile::open() {
    package_ = std::make_unique<opc::model::Package>(physicalPackage_);
    coreProperties_ =
        std::make_unique<CorePropertiesManager>(*package_, DeterministicMode::FromClock);
    package_->open(opc::interfaces::OpenMode::Read);
}

void PackagedAppFile::close() {
    package_->close();
}

ustring PackagedAppFile::getFileName() const {
    return fileName_;
}

bool PackagedAppFile::hasParts() const {
    return package_->hasPart(opc::model::PartName(layout::kAppModel.name));
}

void PackagedAppFile::validateFileParts() const {
    if (hasParts()) return;
    foundation::core::except::throwInternal(
        AppFileReaderGenericException(fileName_, "File is missing App Model part"));
}

}  // namespace appserialization
