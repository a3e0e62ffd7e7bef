#include <appserialization/KAppMetadataReader.hpp>

#include <appserialization/Functions.hpp>
#include <fl/i18n.hpp>
#include <foundation/Base64.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "textapp/AppendixScanner.hpp"
#include "textapp/Layout.hpp"
#include "textapp/TextFile.hpp"
#include "textapp/TextSearch.hpp"

namespace appserialization {

namespace {

using namespace textapp;

ustring trimmed(ustring text) {
    trim(text);
    return text;
}

// The unescaped text of an element, or `missing` if the section has no such element.
ustring elementText(ustring_view section, ustring_view elementName, ustring_view missing = {}) {
    ustring text(findElement(section, elementName).value_or(missing));
    unescapeXMLEntities(text);
    return text;
}

void setText(AppMetadata& metadata, ustring_view section, const TextElementRow& row) {
    ustring text = elementText(section, row.name, row.missing);
    (metadata.*row.set)(row.isTrimmed ? trimmed(std::move(text)) : text);
}

void setList(AppMetadata& metadata, ustring_view section, const ListElementRow& row) {
    std::vector<ustring> items;
    readXMLElements(elementText(section, row.name), row.item, items);
    (metadata.*row.set)(items);
}

// The host takes the screenshot unless `autoCapture` is "false". Then the screenshot is the one in
// the file, if the element has any text, even if that is only white space.
const char16_t* screenshotMode(ustring_view section) {
    ustring autoCapture(findAttribute(section, kThumbnail, kAutoCapture).value_or(u"true"));
    unescapeXMLEntities(autoCapture);
    if (autoCapture != u"false") return u"auto";
    return findElement(section, kThumbnail).value_or(u"").empty() ? u"none" : u"manual";
}

}  // namespace

class KAppMetadataReader::KAppMetadataReaderImpl {
public:
    explicit KAppMetadataReaderImpl(const ustring& fileName)
        : fileName_(fileName), text_(readTextFile(fileName)) {}

    const ustring& getFileName() const { return fileName_; }

    AppMetadata getAppMetadata() const {
        AppMetadata metadata;
        for (const SectionRow& row : kSections) {
            const ustring_view body = section(row);
            for (const TextElementRow& text : row.texts)
                setText(metadata, body, text);
            for (const ListElementRow& list : row.lists)
                setList(metadata, body, list);
        }
        metadata.setScreenshotMode(screenshotMode(section(kThumbnailSection)));
        metadata.setKVPKGVersion(u"");  // a text app is not a package
        return metadata;
    }

    // Leaves both arguments as they are if there is no screenshot.
    void getAppScreenshot(std::vector<std::uint8_t>& bytes, ustring& format) const {
        const auto element = findElement(section(kThumbnailSection), kThumbnail);
        if (!element) return;
        // From here on we use UTF-8: the payload may be most of the file, and UTF-16 takes twice
        // the memory.
        std::string uri = fl::i18n::ustring_to_utf8(*element);
        unescapeXMLEntities(uri);
        if (!uri.starts_with(kImageUriStart)) return;
        const auto image = findImageDataUri(uri);
        if (!image) return;
        bytes = foundation::crypto::utils::base64Decode(image->payload);
        format = fl::i18n::utf8_to_ustring(image->format);
    }

private:
    // The body of a section; empty if there is none. The text was decoded from UTF-8, so it is
    // valid UTF-16, as the scanner requires.
    ustring_view section(const SectionRow& row) const {
        return findSection(text_, row.name).value_or(ustring_view());
    }

    ustring fileName_;
    ustring text_;
};

KAppMetadataReader::KAppMetadataReader(const ustring& fileName)
    : impl_(std::make_unique<KAppMetadataReaderImpl>(validateFilePath(fileName, kExtension))) {}

KAppMetadataReader::~KAppMetadataReader() = default;

ustring KAppMetadataReader::getFileName() const {
    return impl_->getFileName();
}

ustring KAppMetadataReader::getExtension() const {
    return kExtension;
}

AppMetadata KAppMetadataReader::readMetadata() const {
    return impl_->getAppMetadata();
}

Screenshot KAppMetadataReader::readScreenshotAsBytes() const {
    Screenshot screenshot;
    impl_->getAppScreenshot(screenshot.second, screenshot.first);
    return screenshot;
}

}  // namespace appserialization
