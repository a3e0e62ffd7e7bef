#include "package/PackagedMetadata.hpp"

#include <opc/CoreProperties.hpp>
#include <opc/Package.hpp>
#include <opc/Streams.hpp>
#include <xercesc/dom/DOMElement.hpp>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "package/Layout.hpp"
#include "package/ParsedMetadata.hpp"
#include "package/Parts.hpp"

namespace appserialization {

using opc::model::XercesHelper;
using xercesc::DOMElement;

namespace {

// What to ask for before an image is read, whose size may be wrong.
constexpr std::uint64_t kMostReserved = std::uint64_t{1} << 20;

// The metadata of an app whose package holds none.
AppMetadata defaultMetadata() {
    AppMetadata metadata;
    metadata.setName(u"");
    metadata.setAuthor(u"");
    metadata.setVersion(layout::kDefaultVersion);
    metadata.setSummary(u"");
    metadata.setKORVALRelease(u"");
    for (const auto* text : layout::kTextElementsAsRead)
        (metadata.*text->set)(text->defaultText);
    for (const auto& list : layout::kListElements)
        (metadata.*list.set)({});
    return metadata;
}

}  // namespace

PackagedMetadata::PackagedMetadata(ustring fileName) : PackagedAppFile(std::move(fileName)) {
    open();
    validateFileParts();
}

PackagedMetadata::PackagedMetadata(ustring fileName,
                                   const opc::zippackage::ZipPhysicalPackage& file)
    : PackagedAppFile(std::move(fileName), file) {
    open();
    validateFileParts();
}

PackagedMetadata::~PackagedMetadata() {
    try {
        close();
    } catch (...) {
        // The package was opened for reading, so nothing is lost.
    }
}

AppMetadata PackagedMetadata::getAppMetadata() const {
    validateFileParts();
    AppMetadata metadata = defaultMetadata();
    readMetadataPart(metadata);
    readCoreProperties(metadata);
    return metadata;
}

void PackagedMetadata::readMetadataPart(AppMetadata& metadata) const {
    const auto found = package().getRelationshipsByType(layout::kMetadataRelationship);
    // Several are as bad as none, because nobody could say which part is meant.
    if (found.size() != 1) return;
    const ParsedMetadata document(package().getTarget(found.front()));
    for (const auto* text : layout::kTextElementsAsRead) {
        ustring value = *(metadata.*text->get)();
        readStringElement(document.root(), value, text->name);
        (metadata.*text->set)(value);
    }
    for (const auto& list : layout::kListElements) {
        std::vector<ustring> values;
        readStringArrayElement(document.root(), values, list.name, list.item, list.attribute);
        (metadata.*list.set)(values);
    }
}

void PackagedMetadata::readStringElement(const DOMElement* parent, ustring& value,
                                         const ustring& name) {
    const DOMElement* element = XercesHelper::getElement(parent, name);
    if (element != nullptr) XercesHelper::getElementText(element, value);
}

void PackagedMetadata::readStringArrayElement(const DOMElement* parent,
                                              std::vector<ustring>& values, const ustring& listName,
                                              const ustring& itemName,
                                              const ustring& attributeName) {
    const DOMElement* list = XercesHelper::getElement(parent, listName);
    if (list == nullptr) return;
    for (const DOMElement* item : XercesHelper::getElements(list, itemName)) {
        // An item without the attribute becomes an empty text, so that the items after it keep
        // their positions.
        XercesHelper::getElementAttribute(item, attributeName, values.emplace_back());
    }
}

void PackagedMetadata::readCoreProperties(AppMetadata& metadata) const {
    const opc::qzservices::CoreProperties properties = coreProperties().getCoreProperties();
    if (const auto title = properties.getTitle()) metadata.setName(*title);
    // The package's description is the app's summary. The app's description is in the metadata
    // part.
    if (const auto description = properties.getDescription()) metadata.setSummary(*description);
    if (const auto version = properties.getVersion()) metadata.setVersion(*version);
    if (const auto createdBy = properties.getCreatedBy()) metadata.setAuthor(*createdBy);
    metadata.setKORVALRelease(properties.getKORVALRelease());
}

void PackagedMetadata::getAppScreenshot(std::vector<std::uint8_t>& bytes, ustring& format) const {
    validateFileParts();
    const auto found = package().getRelationshipsByType(layout::kScreenshotRelationship);
    if (found.size() != 1) return;
    const opc::model::Part part = package().getTarget(found.front());
    requireScreenshotSize(getFileName(), part.getName(), part.size());
    const auto stream = part.getInputStream();
    bytes.reserve(bytes.size() + std::min(part.size(), kMostReserved));
    opc::ByteArrayOutAdaptor image(bytes);
    opc::StreamHelper::copyStreamToStream(*stream, image);
    format = part.getName().getExtension();
}

}  // namespace appserialization
