#pragma once

#include <appserialization/ustring.hpp>
#include <opc/CorePropertiesManager.hpp>
#include <opc/Package.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <memory>

namespace appserialization {

// A packaged app file that is open for reading: what both readers are built on.
class PackagedAppFile {
public:
    // Throws the package library's error once the package is closed.
    void close();
    ustring getFileName() const;
    bool hasParts() const;
    // Throws AppFileReaderGenericException unless hasParts().
    void validateFileParts() const;

protected:
    // Takes a validated name; nothing is open yet.
    explicit PackagedAppFile(ustring fileName);
    // For another reader of the file that `file` means (see ZipPhysicalPackage).
    PackagedAppFile(ustring fileName, const opc::zippackage::ZipPhysicalPackage& file);
    ~PackagedAppFile();
    PackagedAppFile(const PackagedAppFile&) = delete;
    PackagedAppFile& operator=(const PackagedAppFile&) = delete;

    void open();
    const opc::zippackage::ZipPhysicalPackage& physicalPackage() const noexcept {
        return physicalPackage_;
    }
    const opc::model::Package& package() const noexcept { return *package_; }
    const opc::qzservices::CorePropertiesManager& coreProperties() const noexcept {
        return *coreProperties_;
    }

private:
    // Destroyed from the bottom up: the package lets go before the zip file under it does.
    ustring fileName_;
    opc::zippackage::ZipPhysicalPackage physicalPackage_;
    std::unique_ptr<opc::model::Package> package_;
    std::unique_ptr<opc::qzservices::CorePropertiesManager> coreProperties_;
};

}  // namespace appserialization
