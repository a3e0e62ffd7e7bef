#include <quillcode/QuillCodeFileReader.hpp>

#include <opc/Package.hpp>

#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>

#include <opc/Exception.hpp>
#include <quillcode/CodePart.hpp>

#include <string>

namespace quillcode {

QuillCodeFileReader::QuillCodeFileReader(const ustring& fileName) : file_(fileName, true) {}

QuillCodeFileReader::QuillCodeFileReader(const opc::zippackage::ZipPhysicalPackage& file)
    : file_(file) {}

ustring QuillCodeFileReader::getKORVALCode() const {
    opc::model::Package package(file_);
    package.open(opc::interfaces::OpenMode::Read);
    const auto part = package.getTarget(codepart::findRelationships(package, 1).front());
    const auto bytes = readAll(part, codepart::kMaxBytes);
    try {
        return fl::i18n::utf8_to_ustring_strict(
            {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    } catch (const fl::i18n::ConversionError& fault) {
        throw opc::Exception(
            foundation::shown(file_.path()) + ": " + foundation::shown(part.getName().toString()) +
            ": the code is not valid UTF-8 at byte " + std::to_string(fault.index()));
    }
}

}  // namespace quillcode
