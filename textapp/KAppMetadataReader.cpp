#include <appserialization/KAppMetadataReader.hpp>

#include <appserialization/Functions.hpp>
#include <fl/i18n.hpp>
#include <foundation/Base64.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "textapp/AppendixScanner.hpp"
#include "textapp/Layout.hpp"
#include "textapp/TextFile.hpp"

namespace appserialization {

namespace {

using namespace textapp;
using fl::i18n::utf8_to_ustring;
using foundation::crypto::utils::base64Decode;
using foundation::crypto::utils::base64DecodedSize;

ustring trimmed(std::string_view bytes) {
    ustring text = utf8_to_ustring(bytes);
    trim(text);
    return text;
}

// The unescaped text of an element, or `missing` if the section has no such element.
std::string elementText(std::string_view section, std::string_view elementName,
                        std::string_view missing = "") {
    return unescapedXMLEntities(findElement(section, elementName).value_or(missing));
}

void setText(AppMetadata& metadata, std::string_view section, const TextElementRow& row) {
    const std::string text = elementText(section, row.name, row.missing);
    (metadata.*row.set)(row.isTrimmed ? trimmed(text) : utf8_to_ustring(text));
}

void setList(AppMetadata& metadata, std::string_view section, const ListElementRow& row) {
    const std::string list = elementText(section, row.name);
    std::vector<ustring> items;
    std::string_view rest = list;
    while (const auto item = takeElement(rest, row.item))
        items.push_back(trimmed(*item));
    (metadata.*row.set)(items);
}

// The host takes the screenshot unless `autoCapture` is "false". Then the screenshot is the one in
// the file, if the element has any text, even if that is only white space.
const char16_t* screenshotMode(std::string_view section) {
    const auto autoCapture = findAttribute(section, kThumbnail, kAutoCapture).value_or("true");
    if (unescapedXMLEntities(autoCapture) != "false") return u"auto";
    return findElement(section, kThumbnail).value_or("").empty() ? u"none" : u"manual";
}

}  // namespace

class KAppMetadataReader::KAppMetadataReaderImpl {
public:
    explicit KAppMetadataReaderImpl(const ustring& fileName) : fileName_(fileName) {
        SectionFinder sections;
        text_ = readTextFile(fileName, sections);
        bodies_ = sections.bodies({text_.data(), text_.size()});
    }

    const ustring& getFileName() const { return fileName_; }

    AppMetadata getAppMetadata() const {
        AppMetadata metadata;
        for (const SectionRow& row : kSections) {
            const std::string_view body = section(row);
            for (const TextElementRow& text : row.texts)
                setText(metadata, body, text);
            for (const ListElementRow& list : row.lists)
                setList(metadata, body, list);
        }
        metadata.setScreenshotMode(screenshotMode(section(kThumbnailSection)));
        metadata.setKVPKGVersion(u"");  // a text app is not a package
        return metadata;
    }

    // The data URI of the screenshot. It is a view into the file's text, because it may be most of
    // that, or into `unescaped` if it has entity references.
    std::optional<ImageDataUri> findScreenshot(std::string& unescaped) const {
        std::string_view uri = findElement(section(kThumbnailSection), kThumbnail).value_or("");
        if (uri.find('&') != uri.npos) uri = unescaped = unescapedXMLEntities(uri);
        if (!uri.starts_with(kImageUriStart)) return std::nullopt;
        return findImageDataUri(uri);
    }

private:
    // The body of a section; empty if there is none.
    std::string_view section(const SectionRow& row) const {
        const auto found = std::ranges::find(kSections, row.name, &SectionRow::name);
        return bodies_[static_cast<std::size_t>(found - kSections.begin())];
    }

    ustring fileName_;
    FileText text_;
    std::array<std::string_view, kSections.size()> bodies_;  // in text_
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
    std::string unescaped;
    const auto image = impl_->findScreenshot(unescaped);
    if (!image) return {};
    return {utf8_to_ustring(image->format), base64Decode(image->payload)};
}

ScreenshotSize KAppMetadataReader::readScreenshotSize() const {
    std::string unescaped;
    const auto image = impl_->findScreenshot(unescaped);
    if (!image) return {};
    return {utf8_to_ustring(image->format), base64DecodedSize(image->payload)};
}

}  // namespace appserialization
