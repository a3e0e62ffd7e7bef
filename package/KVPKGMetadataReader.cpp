#include <appserialization/KVPKGMetadataReader.hpp>

#include <appserialization/Functions.hpp>
#include <opc/Streams.hpp>
#include <opc/XercesHelper.hpp>

#include <utility>

#include "package/Layout.hpp"
#include "package/MetadataDocument.hpp"
#include "package/PackagedAppFile.hpp"
#include "package/Parts.hpp"

namespace appserialization {

using opc::model::XercesHelper;
using xercesc::DOMElement;

class __attribute__((visibility("hidden"))) KVPKGMetadataReader::KVPKGMetadataReaderImpl
    : public PackagedAppFile {
public:
    explicit KVPKGMetadataReaderImpl(ustring fileName);
    ~KVPKGMetadataReaderImpl();

    AppMetadata getAppMetadata() const;
    // Appends to `bytes`; leaves both alone unless there is exactly one screenshot.
    void getAppScreenshot(std::vector<std::uint8_t>& bytes, ustring& format) const;

private:
    void readMetadataPart(AppMetadata& metadata) const;
    void readCoreProperties(AppMetadata& metadata) const;
    static void readStringElement(const DOMElement* parent, ustring& value, const ustring& name);
    static void readStringArrayElement(const DOMElement* parent, std::vector<ustring>& values,
                                       const ustring& listName, const ustring& itemName,
                                       const ustring& attributeName);

    opc::model::XercesGuard xercesGuard_;
};

namespace {

// What a package that says nothing about its app stands for.
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

KVPKGMetadataReader::KVPKGMetadataReaderImpl::KVPKGMetadataReaderImpl(ustring fileName)
    : PackagedAppFile(std::move(fileName)) {
    open();
    validateFileParts();
}

KVPKGMetadataReader::KVPKGMetadataReaderImpl::~KVPKGMetadataReaderImpl() {
    try {
        close();
    } catch (...) {
        // Nothing was to be saved, and a destructor has nobody to tell.
    }
}

AppMetadata KVPKGMetadataReader::KVPKGMetadataReaderImpl::getAppMetadata() const {
    validateFileParts();
    AppMetadata metadata = defaultMetadata();
    readMetadataPart(metadata);
    readCoreProperties(metadata);
    return metadata;
}

void KVPKGMetadataReader::KVPKGMetadataReaderImpl::readMetadataPart(AppMetadata& metadata) const {
    const auto found = package().getRelationshipsByType(layout::kMetadata.relationshipType);
    // Two are as bad as none: nobody can tell which part is meant.
    if (found.size() != 1) return;
    const MetadataDocument document(package().getTarget(found.front()));
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

void KVPKGMetadataReader::KVPKGMetadataReaderImpl::readStringElement(const DOMElement* parent,
                                                                     ustring& value,
                                                                     const ustring& name) {
    const DOMElement* element = XercesHelper::getElement(parent, name);
    if (element != nullptr) XercesHelper::getElementText(element, value);
}

void KVPKGMetadataReader::KVPKGMetadataReaderImpl::readStringArrayElement(
    const DOMElement* parent, std::vector<ustring>& values, const ustring& listName,
    const ustring& itemName, const ustring& attributeName) {
    const DOMElement* list = XercesHelper::getElement(parent, listName);
    if (list == nullptr) return;
    for (const DOMElement* item : XercesHelper::getElements(list, itemName)) {
        // An item without the attribute still counts, so that positions stay what they are.
        XercesHelper::getElementAttribute(item, attributeName, values.emplace_back());
    }
}

void KVPKGMetadataReader::KVPKGMetadataReaderImpl::readCoreProperties(AppMetadata& metadata) const {
    const opc::qzservices::CoreProperties properties = coreProperties().getCoreProperties();
    if (const auto title = properties.getTitle()) metadata.setName(*title);
    // The package's description is the app's summary; the app's own description is in the XML.
    if (const auto description = properties.getDescription()) metadata.setSummary(*description);
    if (const auto version = properties.getVersion()) metadata.setVersion(*version);
    if (const auto createdBy = properties.getCreatedBy()) metadata.setAuthor(*createdBy);
    metadata.setKORVALRelease(properties.getKORVALRelease());
}

void KVPKGMetadataReader::KVPKGMetadataReaderImpl::getAppScreenshot(
    std::vector<std::uint8_t>& bytes, ustring& format) const {
    validateFileParts();
    const auto found = package().getRelationshipsByType(layout::kScreenshotRelationship);
    if (found.size() != 1) return;
    const opc::model::Part part = package().getTarget(found.front());
    requireScreenshotSize(getFileName(), part.getName(), part.size());
    const auto stream = part.getInputStream();
    opc::ByteArrayOutAdaptor image(bytes);
    opc::StreamHelper::copyStreamToStream(*stream, image);
    format = part.getName().getExtension();
}

KVPKGMetadataReader::KVPKGMetadataReader(const ustring& fileName)
    : impl_(std::make_unique<KVPKGMetadataReaderImpl>(
          validateFilePath(fileName, KVPKGMetadataReader::getExtension()))) {}
KVPKGMetadataReader::~KVPKGMetadataReader() = default;

ustring KVPKGMetadataReader::getFileName() const {
    return impl_->getFileName();
}

ustring KVPKGMetadataReader::getExtension() const {
    return layout::kExtension;
}

AppMetadata KVPKGMetadataReader::readMetadata() const {
    return impl_->getAppMetadata();
}

Screenshot KVPKGMetadataReader::readScreenshotAsBytes() const {
    Screenshot screenshot;
    impl_->getAppScreenshot(screenshot.second, screenshot.first);
    return screenshot;
}

}  // namespace appserialization
