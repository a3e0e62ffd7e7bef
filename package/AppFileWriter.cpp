#include <appserialization/AppFileWriter.hpp>

#include <fl/FileReader.hpp>
#include <fl/filesystem.hpp>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>
#include <foundation/ustring.hpp>
#include <opc/CoreProperties.hpp>
#include <opc/CorePropertiesManager.hpp>
#include <opc/Exception.hpp>
#include <opc/HostProperties.hpp>
#include <opc/Package.hpp>
#include <opc/PartKind.hpp>
#include <opc/PartName.hpp>
#include <opc/RelatedPart.hpp>
#include <opc/StandardProperties.hpp>
#include <opc/Streams.hpp>
#include <opc/XercesHelper.hpp>
#include <opc/ZipPhysicalPackage.hpp>
#include <quillcode/CodePart.hpp>
#include <quillcode/QuillCodeFileWriter.hpp>

#include <boost/optional.hpp>
#include <boost/variant.hpp>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <map>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <utility>

#include "package/Layout.hpp"
#include "package/OtherMetadata.hpp"
#include "package/ParsedMetadata.hpp"
#include "package/PartKinds.hpp"
#include "package/Parts.hpp"

namespace appserialization {

using foundation::ustring_view;
using opc::interfaces::OpenMode;
using opc::model::ContentType;
using opc::model::PackageHelper;
using opc::model::Part;
using opc::model::PartName;
using opc::model::XercesHelper;
using opc::qzservices::CoreProperties;
using opc::qzservices::CorePropertiesManager;
using opc::qzservices::DeterministicMode;
using opc::qzservices::HostProperties;
using opc::qzservices::StandardProperties;
using opc::zippackage::ZipPhysicalPackage;
using quillcode::QuillCodeFileWriter;
using xercesc::DOMElement;

namespace {

std::string shownName(const ustring& fileName) {
    return foundation::shown(fl::filesystem::path(fileName));
}

}  // namespace

class __attribute__((visibility("hidden"))) AppFileWriter::AppFileWriterImpl {
public:
    AppFileWriterImpl(const ustring& fileName, bool createNew);

    void close();
    void setKORVALCodeText(const ustring& codeText);
    void setAppModelFromFile(const ustring& modelFilePath);
    void setAppMetadata(const AppMetadata& metadata);
    void setAppScreenshot(const std::vector<std::uint8_t>& bytes, const ustring& format);

private:
    // The texts of the package's earlier metadata part, for fields that the new record lacks.
    using Fallbacks = std::map<const layout::TextElementRow*, boost::optional<ustring>>;

    void openOPCPackage(const ustring& fileName, bool createNew);
    void open(const ZipPhysicalPackage& file, OpenMode mode);
    void requireUsable(const char* method) const;
    void requireReplaceable(ustring_view relationshipType, ustring_view partName) const;
    void writeMinimalSetOfOPCProperties();
    Part createPartAndRelationship(const opc::model::PartKindRow& kind);

    std::optional<ParsedMetadata> readEarlierMetadata() const;
    static Fallbacks fallbacksIn(const DOMElement* earlier);
    void writeMetadataPart(Part& part, const AppMetadata& metadata,
                           const DOMElement* earlier) const;
    void keepOther(const Part& part, const DOMElement* earlier, DOMElement* root) const;
    void writeCoreProperties(const AppMetadata& metadata);
    static boost::optional<ustring> getElementText(const DOMElement* element);
    void writeStringElement(DOMElement* parent, boost::optional<ustring> value,
                            boost::optional<ustring> fallback, const char16_t* elementName,
                            const char16_t* defaultText) const;
    void writeStringArrayElement(DOMElement* parent, boost::optional<std::vector<ustring>> values,
                                 const char16_t* listName, const char16_t* itemName,
                                 const ustring& attributeName) const;

    std::optional<PartName> previousScreenshot() const;
    void deleteRelationships(const std::vector<ustring>& identifiers);
    void deleteOnlyRelationship(const ustring& type);

    ustring fileName_;
    // True from the first step of a change until its last. It stays true if a step in between
    // throws.
    bool isHalfChanged_ = false;
    // Why the file could not be opened again after its code had been saved; null otherwise.
    std::exception_ptr reopenFailure_;
    // Members are destroyed from the bottom up, so the manager lets go of the package before that
    // lets go of the zip file. All three are null while the writer is closed.
    std::unique_ptr<ZipPhysicalPackage> physicalPackage_;
    std::unique_ptr<opc::model::Package> package_;
    std::unique_ptr<CorePropertiesManager> coreProperties_;
    opc::model::XercesGuard xercesGuard_;
};

AppFileWriter::AppFileWriterImpl::AppFileWriterImpl(const ustring& fileName, bool createNew)
    : fileName_(fileName) {
    openOPCPackage(fileName, createNew);
}

// ---- Opening and closing

void AppFileWriter::AppFileWriterImpl::openOPCPackage(const ustring& fileName, bool createNew) {
    fl::filesystem::path path;
    if (!fileName.empty()) path = fl::filesystem::detail::make_native_form(fileName, true);
    const bool exists = fl::filesystem::exists(path);
    open(ZipPhysicalPackage(path, true), createNew ? OpenMode::Create
                                         : exists  ? OpenMode::Edit
                                                   : OpenMode::CreateNew);
    if (createNew || !exists) writeMinimalSetOfOPCProperties();
}

void AppFileWriter::AppFileWriterImpl::open(const ZipPhysicalPackage& file, OpenMode mode) {
    auto physicalPackage = std::make_unique<ZipPhysicalPackage>(file);
    auto package = std::make_unique<opc::model::Package>(*physicalPackage);
    auto coreProperties =
        std::make_unique<CorePropertiesManager>(*package, DeterministicMode::FromClock);
    package->open(mode);

    // The members are set after all that can throw, so that a writer is either open or closed.
    physicalPackage_ = std::move(physicalPackage);
    package_ = std::move(package);
    coreProperties_ = std::move(coreProperties);
}

void AppFileWriter::AppFileWriterImpl::requireUsable(const char* method) const {
    if (reopenFailure_) std::rethrow_exception(reopenFailure_);
    if (!package_) {
        throw opc::Exception(shownName(fileName_) + ": " + method +
                             "() was called on a writer that is closed; construct another one to "
                             "change the file again");
    }
    package_->refuseInReport();
    if (isHalfChanged_) {
        throw opc::Exception(shownName(fileName_) +
                             ": not saved, because an earlier change failed halfway; construct "
                             "another writer and make the changes again");
    }
}

// Throws if setting the part of this relationship type would overwrite something else: the target
// of the first relationship that leads to a part if that is a part of another kind, or an item
// without a content type.
void AppFileWriter::AppFileWriterImpl::requireReplaceable(ustring_view relationshipType,
                                                          ustring_view partName) const {
    const ustring type(relationshipType);
    requireNoUntypedItem(*package_, type, PartName(partName));
    for (const auto& relationship : package_->getRelationshipsByType(type)) {
        if (!package_->hasTarget(relationship)) continue;
        requireOwnTarget(*package_, relationship, layout::partKinds());
        return;
    }
}

void AppFileWriter::AppFileWriterImpl::close() {
    const bool isAllSaved = std::exchange(reopenFailure_, nullptr) != nullptr;
    if (isAllSaved) return;
    requireUsable("close");
    // Moving them into locals leaves the writer closed even if saving throws. Locals are destroyed
    // from the bottom up, as the members are.
    const auto physicalPackage = std::move(physicalPackage_);
    const auto package = std::move(package_);
    const auto coreProperties = std::move(coreProperties_);
    package->close();
}

void AppFileWriter::AppFileWriterImpl::writeMinimalSetOfOPCProperties() {
    CoreProperties properties = coreProperties_->getCoreProperties();
    properties.setContentType(layout::kPackageContentType);
    properties.setContentTypeFriendlyName(layout::kPackageFriendlyName);
    properties.setKORVALRelease(CoreProperties::getCurrentKORVALRelease());
    properties.setLastModifiedTime(CoreProperties::getCurrentTime());
    coreProperties_->setCoreProperties(properties);
}

Part AppFileWriter::AppFileWriterImpl::createPartAndRelationship(
    const opc::model::PartKindRow& kind) {
    const ustring relationshipType(kind.relationshipType);
    const auto found = package_->getRelationshipsByType(relationshipType);
    // The existing part is used, whatever its name. If a second part were created, readers would
    // still read the first one.
    if (!found.empty()) return requireOwnTarget(*package_, found.front(), layout::partKinds());

    const PartName name(kind.name);
    const auto misled = danglingAt(*package_, name, relationshipType, layout::partKinds());
    Part part = package_->createPart(name, ContentType(kind.contentType), layout::partInfo());
    isHalfChanged_ = true;
    deleteRelationships(misled);
    package_->createInternalRelationship(relationshipType, part.getName().getURI(), u"");
    return part;
}

// ---- Code and model

namespace {

class ModelStream final : public opc::InputStream {
public:
    ModelStream(const fl::filesystem::path& file, const std::string& shown)
        : name_("\"" + shown + "\""), file_(open(file)) {}

    bool isOpen() const noexcept { return file_.isOpen(); }
    std::size_t read(std::span<std::byte> buffer) override {
        return about([&] { return file_.read(buffer); });
    }

private:
    template <class Step>
    auto about(Step step) const -> decltype(step()) {
        try {
            return step();
        } catch (const std::system_error& error) {
            throw opc::Exception("cannot read to the end of " + name_ + ": " + error.what());
        }
    }
    fl::filesystem::FileReader open(const fl::filesystem::path& file) const {
        return about([&] {
            fl::filesystem::FileReader opened(file);
            // This says nothing about the file.
            if (!opened.isOpen() && errno == ENOMEM) throw std::bad_alloc();
            return opened;
        });
    }

    std::string name_;
    fl::filesystem::FileReader file_;
};

}  // namespace

void AppFileWriter::AppFileWriterImpl::setKORVALCodeText(const ustring& codeText) {
    requireUsable("setKORVALCodeText");
    requireReplaceable(quillcode::codepart::kRelationshipType, quillcode::codepart::kName);
    quillcode::codepart::findRelationships(*package_, 0);
    // This stands for the file that is open now in all three steps below, even if its name comes to
    // lead to another file.
    const ZipPhysicalPackage file = *physicalPackage_;
    // The code-file library owns the form of the code part and opens the file itself. It gets the
    // text before anything is saved, so that text which it refuses leaves the file as it was.
    {
        QuillCodeFileWriter code(file, {layout::kPackageContentType, layout::kPackageFriendlyName});
        code.setKORVALCode(codeText);
        close();
        code.close(false);
    }
    // The code is in the file by now, so this call has succeeded. An exception would make the
    // caller set it again.
    try {
        open(file, OpenMode::Edit);
    } catch (...) {
        reopenFailure_ = std::current_exception();
    }
}

void AppFileWriter::AppFileWriterImpl::setAppModelFromFile(const ustring& modelFilePath) {
    requireUsable("setAppModelFromFile");
    Part part = createPartAndRelationship(layout::kAppModel);
    fl::filesystem::path path;
    if (!modelFilePath.empty()) {
        path = fl::filesystem::detail::make_native_form(modelFilePath, true);
    }
    ModelStream model(path, shownName(modelFilePath));
    // A file that does not open leaves the part as it was.
    if (model.isOpen()) opc::StreamHelper::copyStreamToStream(model, *part.getOutputStream());
    isHalfChanged_ = false;
}

// ---- Metadata

namespace {

// Refuses a field's value that XML cannot hold, with the name of the field.
class RequireXmlText : public boost::static_visitor<void> {
public:
    explicit RequireXmlText(const char* field) : field_(fl::i18n::utf8_to_ustring(field)) {}

    void operator()(const appmetadata::OptionalString& text) const {
        if (text) opc::model::requireXmlText(*text, field_);
    }

    void operator()(const appmetadata::OptionalStringList& list) const {
        if (!list) return;
        for (std::size_t i = 0; i < list->size(); ++i) {
            const std::string position = std::to_string(i);
            ustring item = field_;
            item.append(u"[").append(position.begin(), position.end()).append(u"]");
            opc::model::requireXmlText((*list)[i], item);
        }
    }

private:
    ustring field_;
};

void requireXmlText(const AppMetadata& metadata) {
    for (const auto& [field, value] : metadata.toMap()) {
        const char* name = appmetadata::kFieldNames.at(static_cast<std::size_t>(field));
        boost::apply_visitor(RequireXmlText(name), value);
    }
}

}  // namespace

void AppFileWriter::AppFileWriterImpl::setAppMetadata(const AppMetadata& metadata) {
    requireUsable("setAppMetadata");
    // All that can refuse the record comes before the first change. The serialiser would notice
    // text that XML cannot hold only in the middle of the part.
    requireXmlText(metadata);
    requireReplaceable(layout::kMetadata.relationshipType, layout::kMetadata.name);
    requireReplaceable(PackageHelper::getCorePropertiesRelationshipType(),
                       StandardProperties::kPartName);
    requireReplaceable(HostProperties::kRelationshipType, HostProperties::kPartName);
    const auto earlier = readEarlierMetadata();
    // Throws if the core properties cannot be read. Later, the metadata part would have changed.
    static_cast<void>(coreProperties_->getCoreProperties());
    Part part = createPartAndRelationship(layout::kMetadata);
    writeMetadataPart(part, metadata, earlier ? earlier->root() : nullptr);
    isHalfChanged_ = true;
    writeCoreProperties(metadata);
    isHalfChanged_ = false;
}

std::optional<ParsedMetadata> AppFileWriter::AppFileWriterImpl::readEarlierMetadata() const {
    const auto found = package_->getRelationshipsByType(layout::kMetadataRelationship);
    if (found.empty()) return std::nullopt;
    return std::optional<ParsedMetadata>(std::in_place, package_->getTarget(found.front()));
}

auto AppFileWriter::AppFileWriterImpl::fallbacksIn(const DOMElement* earlier) -> Fallbacks {
    Fallbacks fallbacks;
    if (earlier == nullptr) return fallbacks;
    for (const auto* text : layout::kTextElementsAsRead) {
        const DOMElement* element = XercesHelper::getElement(earlier, text->name);
        if (element != nullptr) fallbacks[text] = getElementText(element);
    }
    return fallbacks;
}

void AppFileWriter::AppFileWriterImpl::writeMetadataPart(Part& part, const AppMetadata& metadata,
                                                         const DOMElement* earlier) const {
    const Fallbacks fallbacks = fallbacksIn(earlier);
    const auto writer = XercesHelper::createWriter();
    const auto document = XercesHelper::createDocument();
    document->setXmlStandalone(true);
    DOMElement* root = XercesHelper::appendElementNS(document.get(), layout::kMetadataNamespace,
                                                     layout::kMetadataRoot);
    for (const auto* text : layout::kTextElementsAsWritten) {
        const auto fallback = fallbacks.find(text);
        writeStringElement(root, (metadata.*text->get)(),
                           fallback != fallbacks.end() ? fallback->second : boost::none, text->name,
                           text->defaultText);
    }
    for (const auto& list : layout::kListElements) {
        writeStringArrayElement(root, (metadata.*list.get)(), list.name, list.item, list.attribute);
    }
    if (earlier != nullptr) keepOther(part, earlier, root);
    XercesHelper::writeDocumentToStream(writer, document, *part.getOutputStream());
}

void AppFileWriter::AppFileWriterImpl::keepOther(const Part& part, const DOMElement* earlier,
                                                 DOMElement* root) const {
    try {
        keepOtherMetadata(earlier, root);
    } catch (const opc::Exception& fault) {
        throw opc::Exception(shownName(fileName_) + ": " +
                             foundation::shown(part.getName().toString()) + ": " + fault.what());
    }
}

void AppFileWriter::AppFileWriterImpl::writeCoreProperties(const AppMetadata& metadata) {
    writeMinimalSetOfOPCProperties();
    CoreProperties properties = coreProperties_->getCoreProperties();
    if (const auto name = metadata.getName()) properties.setTitle(*name);
    // The package's description is the app's summary. The app's description is in the metadata
    // part.
    if (const auto summary = metadata.getSummary()) properties.setDescription(*summary);
    const auto release = metadata.getKORVALRelease();
    const bool current = !release || *release == CoreProperties::getCurrentKORVALRelease();
    properties.setKORVALReleaseInfo(current
                                        ? CoreProperties::getCurrentKORVALReleaseInfo()
                                        : CoreProperties::makeLegacyKORVALReleaseInfo(*release));
    if (const auto version = metadata.getVersion()) properties.setVersion(*version);
    if (const auto author = metadata.getAuthor()) properties.setCreatedBy(*author);
    coreProperties_->setCoreProperties(properties);
}

boost::optional<ustring> AppFileWriter::AppFileWriterImpl::getElementText(
    const DOMElement* element) {
    ustring text;
    if (!XercesHelper::getElementText(element, text)) return boost::none;
    return text;
}

void AppFileWriter::AppFileWriterImpl::writeStringElement(DOMElement* parent,
                                                          boost::optional<ustring> value,
                                                          boost::optional<ustring> fallback,
                                                          const char16_t* elementName,
                                                          const char16_t* defaultText) const {
    DOMElement* element =
        XercesHelper::appendElementNS(parent, layout::kMetadataNamespace, elementName);
    const ustring lastResort(defaultText);  // throws for null, even if it is not needed
    XercesHelper::setElementText(element, value ? *value : fallback ? *fallback : lastResort);
}

void AppFileWriter::AppFileWriterImpl::writeStringArrayElement(
    DOMElement* parent, boost::optional<std::vector<ustring>> values, const char16_t* listName,
    const char16_t* itemName, const ustring& attributeName) const {
    DOMElement* list = XercesHelper::getElement(parent, listName);
    if (list != nullptr) {
        for (DOMElement* item : XercesHelper::getElements(list, itemName))
            list->removeChild(item);
    } else {
        list = XercesHelper::appendElementNS(parent, layout::kMetadataNamespace, listName);
    }
    if (!values) return;
    for (const ustring& value : *values) {
        DOMElement* item =
            XercesHelper::appendElementNS(list, layout::kMetadataNamespace, itemName);
        XercesHelper::setElementAttribute(item, attributeName, value);
    }
}

// ---- Screenshot

namespace {

// In code units. Only this much of a format's name is looked at, which is more than any format has.
constexpr std::size_t kMaxFormatLength = 1024;

const layout::ScreenshotFormatRow& findScreenshotFormat(const ustring& folded) {
    const auto& formats = layout::kScreenshotFormats;
    const auto found = std::find_if(formats.begin(), formats.end(),
                                    [&](const auto& row) { return folded == row.extension; });
    return found != formats.end() ? *found : formats.front();
}

}  // namespace

void AppFileWriter::AppFileWriterImpl::setAppScreenshot(const std::vector<std::uint8_t>& bytes,
                                                        const ustring& format) {
    requireUsable("setAppScreenshot");
    const auto& row = findScreenshotFormat(foundation::asciiLower(format, kMaxFormatLength));
    const PartName name(ustring(layout::kScreenshotNameStem) + row.extension);
    requireScreenshotSize(fileName_, name, bytes.size());
    requireNoUntypedItem(*package_, layout::kScreenshotRelationship, name);

    // The new part is created first, so that a name that is taken is refused while nothing has
    // changed. That is impossible only if the old part has this name, and so has to go first.
    const auto old = previousScreenshot();
    const auto create = [&] {
        return package_->createPart(name, row.contentType(), layout::partInfo());
    };
    const auto misled =
        danglingAt(*package_, name, layout::kScreenshotRelationship, layout::partKinds());
    std::optional<Part> part;
    if (old != name) part = create();
    isHalfChanged_ = true;
    deleteRelationships(misled);
    // If another relationship leads to the old part, too, the part stays, without our
    // relationships.
    if (old && (old == name || !isUsedBesides(*package_, *old,
                                              {layout::kScreenshotRelationship,
                                               PackageHelper::getThumbnailRelationshipType()}))) {
        package_->deletePart(*old);
    }
    deleteOnlyRelationship(layout::kScreenshotRelationship);
    deleteOnlyRelationship(PackageHelper::getThumbnailRelationshipType());
    if (!part) part = create();

    package_->createInternalRelationship(layout::kScreenshotRelationship, name.getURI(), u"");
    package_->createInternalRelationship(PackageHelper::getThumbnailRelationshipType(),
                                         name.getURI(), u"");
    opc::ByteArrayInAdaptor image(bytes);
    opc::StreamHelper::copyStreamToStream(image, *part->getOutputStream());
    isHalfChanged_ = false;
}

// The name of the screenshot to replace. None if there are several, because nobody could say which
// one is meant; and none if the only relationship leads to a part that is missing, because that
// must not prevent a new screenshot.
std::optional<PartName> AppFileWriter::AppFileWriterImpl::previousScreenshot() const {
    const auto found = package_->getRelationshipsByType(layout::kScreenshotRelationship);
    if (found.size() != 1 || !package_->hasTarget(found.front())) return std::nullopt;
    return requireOwnTarget(*package_, found.front(), layout::partKinds()).getName();
}

void AppFileWriter::AppFileWriterImpl::deleteRelationships(
    const std::vector<ustring>& identifiers) {
    for (const ustring& identifier : identifiers)
        package_->deleteRelationship(identifier);
}

void AppFileWriter::AppFileWriterImpl::deleteOnlyRelationship(const ustring& type) {
    const auto found = package_->getRelationshipsByType(type);
    if (found.size() == 1) package_->deleteRelationship(found.front().getID());
}

// ---- The handle

AppFileWriter::AppFileWriter(const ustring& fileName, bool createNew)
    : impl_(std::make_unique<AppFileWriterImpl>(fileName, createNew)) {}
AppFileWriter::~AppFileWriter() = default;

void AppFileWriter::close() {
    impl_->close();
}

void AppFileWriter::setKORVALCodeText(const ustring& codeText) {
    impl_->setKORVALCodeText(codeText);
}

void AppFileWriter::setAppModelFromFile(const ustring& modelFilePath) {
    impl_->setAppModelFromFile(modelFilePath);
}

void AppFileWriter::setAppMetadata(const AppMetadata& metadata) {
    impl_->setAppMetadata(metadata);
}

void AppFileWriter::setAppScreenshot(const std::vector<std::uint8_t>& bytes,
                                     const ustring& format) {
    impl_->setAppScreenshot(bytes, format);
}

}  // namespace appserialization
