#include "package/ParsedMetadata.hpp"

#include "package/Layout.hpp"

namespace appserialization {

using opc::model::XercesHelper;

ParsedMetadata::ParsedMetadata(const opc::model::Part& part)
    : parser_(XercesHelper::createParser()) {
    const auto stream = part.getInputStream();
    root_ = XercesHelper::getRoot(XercesHelper::readDocumentFromStream(parser_, *stream, false, u"",
                                                                       layout::kMetadataNamespace));
}

}  // namespace appserialization
