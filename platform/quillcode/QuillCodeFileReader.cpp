#include <quillcode/QuillCodeFileReader.hpp>

#include <opc/Package.hpp>

#include <fl/i18n.hpp>

#include "platform/opc/Shown.hpp"
#include "platform/quillcode/CodePart.hpp"

#include <string_view>

namespace quillcode {

namespace {

opc::model::Part findCode(const opc::model::Package& package, const std::string& file) {
    const auto found = package.getRelationshipsByType(codepart::kRelationshipType);
    if (found.size() != 1) {
        throw opc::Exception(file + ": /_rels/.rels: " + std::to_string(found.size()) +
                             " relationships lead to a code part; expected one");
    }
    return package.getTarget(found.front());
}

}  // namespace

QuillCodeFileReader::QuillCodeFileReader(const ustring& fileName) : fileName_(fileName) {}

ustring QuillCodeFileReader::getKORVALCode() const {
    const auto file = opc::shown(fl::filesystem::path(fileName_));
    const opc::zippackage::ZipPhysicalPackage zip(fileName_, true);
    opc::model::Package package(zip);
    package.open(opc::interfaces::OpenMode::Read);
    const auto part = findCode(package, file);
    const auto bytes = readAll(part, codepart::kMaxBytes);
    try {
        return fl::i18n::utf8_to_ustring_strict(
            {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    } catch (const fl::i18n::ConversionError& fault) {
        throw opc::Exception(file + ": " + opc::shown(part.getName().toString()) +
                             ": the code is not valid UTF-8 at byte " +
                             std::to_string(fault.index()));
    }
}

}  // namespace quillcode
