#include <quillcode/QuillCodeFileWriter.hpp>

#include <opc/CorePropertiesManager.hpp>
#include <opc/Package.hpp>

#include <fl/filesystem.hpp>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>

#include <opc/CoreProperties.hpp>
#include <opc/Exception.hpp>
#include <opc/PartName.hpp>
#include <opc/RelatedPart.hpp>
#include <quillcode/CodePart.hpp>

#include <span>

namespace quillcode {

using opc::interfaces::OpenMode;
using opc::qzservices::CoreProperties;

namespace {

void stamp(opc::model::Package& package, const std::pair<ustring, ustring>& contentType) {
    opc::qzservices::CorePropertiesManager manager(package,
                                                   opc::qzservices::DeterministicMode::FromClock);
    auto properties = manager.getCoreProperties();
    properties.setContentType(contentType.first);
    properties.setContentTypeFriendlyName(contentType.second);
    properties.setKORVALRelease(CoreProperties::getCurrentKORVALRelease());
    properties.setLastModifiedTime(CoreProperties::getCurrentTime());
    manager.setCoreProperties(properties);
}

void writeCode(opc::model::Package& package, const std::string& code) {
    codepart::findRelationships(package, 0);
    auto part = requireRelatedPart(package, codepart::kRelationshipType, codepart::kName,
                                   opc::model::ContentType(codepart::kContentType));
    const auto stream = part.getOutputStream();
    stream->write(std::as_bytes(std::span(code)));
    stream->flush();
}

}  // namespace

ustring QuillCodeFileWriter::getRelationshipType() {
    return codepart::kRelationshipType;
}

QuillCodeFileWriter::QuillCodeFileWriter(const ustring& fileName,
                                         std::pair<ustring, ustring> contentType)
    : QuillCodeFileWriter(opc::zippackage::ZipPhysicalPackage(fileName, true),
                          std::move(contentType)) {}

QuillCodeFileWriter::QuillCodeFileWriter(const opc::zippackage::ZipPhysicalPackage& file,
                                         std::pair<ustring, ustring> contentType)
    : file_(file), contentType_(std::move(contentType)) {}

void QuillCodeFileWriter::setKORVALCode(const ustring& code) {
    requireOpen();
    auto bytes = fl::i18n::ustring_to_utf8(code);
    if (bytes.size() > codepart::kMaxBytes) {
        throw opc::Exception(foundation::shown(file_.path()) + ": the code has " +
                             std::to_string(bytes.size()) + " bytes; no more than " +
                             foundation::shownMebibytes(codepart::kMaxBytes) + " can be written");
    }
    code_ = std::move(bytes);
}

void QuillCodeFileWriter::close(bool stampProperties) {
    requireOpen();
    closed_ = true;
    const bool exists = file_.isBound() || fl::filesystem::exists(file_.path());
    opc::model::Package package(file_);
    package.open(exists ? OpenMode::Edit : OpenMode::CreateNew);
    if (code_) writeCode(package, *code_);
    if (stampProperties || !exists) stamp(package, contentType_);
    package.close();
}

void QuillCodeFileWriter::requireOpen() const {
    if (closed_) {
        throw opc::Exception(foundation::shown(file_.path()) + ": this code writer is closed");
    }
}

}  // namespace quillcode
