#include <appserialization/AppFileReader.hpp>

#include <appserialization/Exceptions.hpp>
#include <appserialization/Functions.hpp>
#include <appserialization/KVPKGMetadataReader.hpp>
#include <fl/filesystem.hpp>
#include <foundation/Exceptions.hpp>
#include <foundation/Shown.hpp>
#include <opc/Exception.hpp>
#include <opc/Streams.hpp>
#include <quillcode/QuillCodeFileReader.hpp>

#include <cerrno>
#include <ios>
#include <string>
#include <system_error>
#include <tuple>

#include "package/Layout.hpp"
#include "package/PackagedAppFile.hpp"
#include "package/Parts.hpp"

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

// Opening the destination empties it, and here that would be the file being read.
void requireOtherFile(const fl::filesystem::path& destination, const ustring& fileName) {
    if (!fl::filesystem::isSameFile(destination, fl::filesystem::path(fileName))) return;
    throw opc::Exception(foundation::shown(fl::filesystem::path(fileName)) +
                         ": the app model cannot be copied over the app file that holds it; "
                         "choose another destination");
}

[[noreturn]] void throwCannotWrite(const std::string& file, int reason) {
    throw opc::Exception("cannot write to " + file + ": " +
                         std::generic_category().message(reason));
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
        return quillcode::QuillCodeFileReader(getFileName()).getKORVALCode();
    } catch (...) {
        throwInternal(AppFileReaderGenericException(getFileName(), "Failed to read KORVAL code"));
    }
}

// A metadata reader of its own for each call, so that the metadata part has one parser and these
// calls work on a closed reader too.
AppMetadata AppFileReader::AppFileReaderImpl::getAppMetadata() const {
    return KVPKGMetadataReader(getFileName()).readMetadata();
}

void AppFileReader::AppFileReaderImpl::getAppScreenshot(std::vector<std::uint8_t>& bytes,
                                                        ustring& format) const {
    std::tie(format, bytes) = KVPKGMetadataReader(getFileName()).readScreenshotAsBytes();
}

void AppFileReader::AppFileReaderImpl::copyAppDataToTempFile(const ustring& destination) const {
    validateFileParts();
    const auto found = package().getRelationshipsByType(layout::kAppModel.relationshipType);
    const opc::model::Part model = package().getTarget(found.at(0));
    const auto stream = model.getInputStream();

    fl::filesystem::path path;
    if (!destination.empty()) path = fl::filesystem::detail::make_native_form(destination, true);
    requireOtherFile(path, getFileName());
    const std::string shownName =
        "\"" + foundation::shown(fl::filesystem::path(destination)) + "\"";
    fl::filesystem::basic_fstream<char> file(path, std::ios_base::out | std::ios_base::binary);
    if (!file.is_open()) throwCannotWrite(shownName, errno);
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
