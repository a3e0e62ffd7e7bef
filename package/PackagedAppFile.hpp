#pragma once

#include <appserialization/ustring.hpp>
#include <opc/CorePropertiesManager.hpp>
#include <opc/Package.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <memory>

namespace appserialization {

// Base of the readers of packaged app files: owns the package and its properties. The derived
// constructor calls open(), because the readers translate its errors differently. Use it from one
// thread at a time.
class PackagedAppFile {
public:
    // After this, every call but getFileName() throws opc::Exception.
    void close();
    // The name that the constructor was given.
    ustring getFileName() const;
    // Whether the package holds the app model, which is found by its name.
    bool hasParts() const;
    // Throws AppFileReaderGenericException unless hasParts().
    void validateFileParts() const;

protected:
    // `fileName` is an absolute path that validateFilePath() has returned. Opens nothing.
    explicit PackagedAppFile(ustring fileName);
    // For the file that another reader has opened as `file` (see ZipPhysicalPackage); `fileName` is
    // only for messages. Opens nothing.
    PackagedAppFile(ustring fileName, const opc::zippackage::ZipPhysicalPackage& file);
    ~PackagedAppFile();
    PackagedAppFile(const PackagedAppFile&) = delete;
    PackagedAppFile& operator=(const PackagedAppFile&) = delete;

    // Opens the package for reading. Throws opc::model::PackageNotFound if there is no such file,
    // and opc::Exception for every other failure.
    void open();
    const opc::zippackage::ZipPhysicalPackage& physicalPackage() const noexcept {
        return physicalPackage_;
    }
    // These two are there only after open().
    const opc::model::Package& package() const noexcept { return *package_; }
    const opc::qzservices::CorePropertiesManager& coreProperties() const noexcept {
        return *coreProperties_;
    }

private:
    // Members are destroyed from the bottom up, so the manager lets go of the package before that
    // lets go of the zip file.
    ustring fileName_;
    opc::zippackage::ZipPhysicalPackage physicalPackage_;
    std::unique_ptr<opc::model::Package> package_;
    std::unique_ptr<opc::qzservices::CorePropertiesManager> coreProperties_;
};

}  // namespace appserialization
