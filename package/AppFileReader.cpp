#include <appserialization/AppFileReader.hpp>

#include <appserialization/AppMetadataReader.hpp>
#include <appserialization/Exceptions.hpp>
#include <appserialization/Functions.hpp>
#include <fl/ReplacementFile.hpp>
#include <fl/filesystem.hpp>
#include <foundation/Exceptions.hpp>
#include <foundation/Shown.hpp>
#include <opc/Exception.hpp>
#include <opc/Package.hpp>
#include <opc/Streams.hpp>
#include <opc/ZipPhysicalPackage.hpp>
#include <quillcode/QuillCodeFileReader.hpp>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>

#include "package/Layout.hpp"
#include "package/PackagedAppFile.hpp"
#include "package/PackagedMetadata.hpp"

namespace appserialization {

using foundation::core::except::throwInternal;

class __attribute__((visibility("hidden"))) AppFileReader::AppFileReaderImpl
    : public PackagedAppFile {
public:
    explicit AppFileReaderImpl(const ustring& fileName);

    ustring getKORVALCodeText() const;
    AppMetadata getAppMetadata() const;
    void getAppScreenshot(std::vector<std::uint8_t>& bytes, ustring& format) const;
    void copyAppDataToTempFile(const ustring& destination) const;
};

namespace {

[[noreturn]] void throwCannotWrite(const std::string& file, const std::error_code& reason) {
    throw opc::Exception("cannot write to " + file + ": " + reason.message());
}

// Throws if the destination is the app file that is open, or the file that has its name by now.
// Opening the destination for writing would empty it.
void requireOtherFile(const fl::filesystem::path& destination,
                      const opc::zippackage::ZipPhysicalPackage& app) {
    const bool isApp = app.isAt(destination) || fl::filesystem::isSameFile(destination, app.path());
    if (!isApp) return;
    throw opc::Exception(foundation::shown(app.path()) +
                         ": the app model cannot be copied over the app file that holds it; "
                         "choose another destination");
}

// A link to a file is followed where a save would follow it, so not one that another user may have
// planted in /tmp.
void requireTrustedLink(const fl::filesystem::path& destination) {
    const std::filesystem::path name =
        fl::filesystem::detail::make_native_access_form_i18n(destination);
    std::error_code ignored;
    if (!std::filesystem::is_symlink(name, ignored)) return;
    const auto target = std::filesystem::status(name, ignored);
    if (std::filesystem::is_regular_file(target) || !std::filesystem::exists(target))
        const fl::filesystem::SaveTarget followed(destination);
}

void requireDestination(const fl::filesystem::path& destination,
                        const opc::zippackage::ZipPhysicalPackage& app, const std::string& shown) {
    try {
        requireOtherFile(destination, app);
        requireTrustedLink(destination);
    } catch (const std::system_error& error) {
        throwCannotWrite(shown, error.code());
    }
}

}  // namespace

AppFileReader::AppFileReaderImpl::AppFileReaderImpl(const ustring& fileName)
    : PackagedAppFile(validateFilePath(fileName, layout::kExtension)) {
    try {
        open();
    } catch (const opc::model::PackageNotFound&) {
        throwInternal(AppFileReaderPackageNotFound(getFileName()));
    } catch (const opc::Exception& failure) {
        throwInternal(AppFileReaderGenericException(
            getFileName(),
            std::string("Internal exception in reading Visual App file: ") + failure.what()));
    }
}

ustring AppFileReader::AppFileReaderImpl::getKORVALCodeText() const {
    validateFileParts();
    try {
        return quillcode::QuillCodeFileReader(physicalPackage()).getKORVALCode();
    } catch (...) {
        throwInternal(AppFileReaderGenericException(getFileName(), "Failed to read KORVAL code"));
    }
}

// This call and the next one open the file again by a PackagedMetadata of their own, so that they
// work on a closed reader, too.
AppMetadata AppFileReader::AppFileReaderImpl::getAppMetadata() const {
    return PackagedMetadata(getFileName(), physicalPackage()).getAppMetadata();
}

void AppFileReader::AppFileReaderImpl::getAppScreenshot(std::vector<std::uint8_t>& bytes,
                                                        ustring& format) const {
    Screenshot screenshot;
    PackagedMetadata(getFileName(), physicalPackage())
        .getAppScreenshot(screenshot.second, screenshot.first);
    std::tie(format, bytes) = std::move(screenshot);
}

void AppFileReader::AppFileReaderImpl::copyAppDataToTempFile(const ustring& destination) const {
    validateFileParts();
    const auto found = package().getRelationshipsByType(layout::kAppModelRelationship);
    const opc::model::Part model = package().getTarget(found.at(0));
    const auto stream = model.getInputStream();

    fl::filesystem::path path;
    if (!destination.empty()) path = fl::filesystem::detail::make_native_form(destination, true);
    const std::string shownName =
        "\"" + foundation::shown(fl::filesystem::path(destination)) + "\"";
    requireDestination(path, physicalPackage(), shownName);
    fl::filesystem::basic_fstream<char> file(path, std::ios_base::out | std::ios_base::binary);
    if (!file.is_open()) throwCannotWrite(shownName, {errno, std::generic_category()});
    opc::StreamHelper::copyStreamToStream(*stream, file, shownName);
}

AppFileReader::AppFileReader(const ustring& fileName)
    : impl_(std::make_unique<AppFileReaderImpl>(fileName)) {}
AppFileReader::~AppFileReader() = default;

void AppFileReader::close() {
    impl_->close();
}

ustring AppFileReader::getFileName() const {
    return impl_->getFileName();
}

bool AppFileReader::hasParts() const {
    return impl_->hasParts();
}

ustring AppFileReader::getKORVALCodeText() const {
    return impl_->getKORVALCodeText();
}

AppMetadata AppFileReader::getAppMetadata() const {
    return impl_->getAppMetadata();
}

void AppFileReader::getAppScreenshot(std::vector<std::uint8_t>& bytes, ustring& format) const {
    impl_->getAppScreenshot(bytes, format);
}

void AppFileReader::copyAppDataToTempFile(const ustring& destination) const {
    impl_->copyAppDataToTempFile(destination);
}

}  // namespace appserialization
