#include "app/AppContent.hpp"

#include <appserialization/AppFileReader.hpp>
#include <fl/i18n.hpp>
#include <foundation/ustring.hpp>
#include <opc/Package.hpp>
#include <quillcode/QuillCodeFileReader.hpp>

#include <exception>

#include "app/Error.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/WithPackage.hpp"
#include "package/Layout.hpp"

namespace qzapp {
namespace {

// Opens the package and returns what `get` returns for its model part.
template <class Get>
auto withModel(const FileName& file, Get get) {
    return withPackage(file, [&](const opc::model::Package& package) {
        const auto models =
            package.getRelationshipsByType(appserialization::layout::kAppModelRelationship);
        if (models.empty()) {
            throw Error(file.shown,
                        "has no relationship that leads to its model; \"qzapp check\" shows what "
                        "can be saved");
        }
        return get(package.getTarget(models[0]));
    });
}

// If AppFileReader fails, the code library is asked again, because its exception says why.
foundation::ustring readPackagedCode(const FileName& file) {
    try {
        return appserialization::AppFileReader(file.native()).getKORVALCodeText();
    } catch (const std::exception&) {
        return quillcode::QuillCodeFileReader(file.native()).getKORVALCode();
    }
}

}  // namespace

std::string readCode(const FileName& file) {
    if (formOf(file) == Form::Text) return readBytes(file, kMaxContentBytes);
    return about(file, [&] { return fl::i18n::ustring_to_utf8(readPackagedCode(file)); });
}

std::unique_ptr<opc::InputStream> openModel(const FileName& file) {
    return withModel(file, [](const opc::model::Part& model) { return model.getInputStream(); });
}

std::uint64_t modelSize(const FileName& file) {
    return withModel(file, [](const opc::model::Part& model) { return model.size(); });
}

opc::model::PartName modelName(const FileName& file) {
    return withModel(file, [](const opc::model::Part& model) { return model.getName(); });
}

}  // namespace qzapp
