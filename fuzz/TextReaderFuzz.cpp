// The text-app reader on files of any bytes: it returns what the appendix functions find in the
// decoded text, and refuses nothing but a screenshot that is not Base64.

#include <appserialization/AppMetadata.hpp>
#include <appserialization/Functions.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <fl/i18n.hpp>
#include <foundation/Base64.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Fuzzing.hpp"
#include "fuzz/MemoryFiles.hpp"
#include "fuzz/Records.hpp"
#include "textapp/AppendixScanner.hpp"
#include "textapp/Layout.hpp"

namespace {

using namespace appserialization;
using namespace appserialization::textapp;
using fl::i18n::utf8_to_ustring;
using fuzz::require;

ustring elementText(const ustring& section, std::string_view name, std::string_view missing = "") {
    ustring text = utf8_to_ustring(missing);
    readXMLElement(section, utf8_to_ustring(name), text);
    return text;
}

ustring screenshotMode(const ustring& thumbnail) {
    ustring autoCapture;
    readXMLElementAttribute(thumbnail, utf8_to_ustring(kThumbnail), utf8_to_ustring(kAutoCapture),
                            autoCapture);
    if (autoCapture != u"false") return u"auto";
    return elementText(thumbnail, kThumbnail).empty() ? u"none" : u"manual";
}

// The metadata in a decoded text.
AppMetadata expectedMetadata(const ustring& text) {
    AppMetadata metadata;
    for (const SectionRow& section : kSections) {
        const ustring body = getKAppAppendixSection(text, utf8_to_ustring(section.name));
        for (const TextElementRow& row : section.texts) {
            ustring value = elementText(body, row.name, row.missing);
            if (row.isTrimmed) trim(value);
            (metadata.*row.set)(value);
        }
        for (const ListElementRow& row : section.lists) {
            std::vector<ustring> items;
            readXMLElements(elementText(body, row.name), utf8_to_ustring(row.item), items);
            (metadata.*row.set)(items);
        }
        if (!section.screenshot.empty()) metadata.setScreenshotMode(screenshotMode(body));
    }
    metadata.setKVPKGVersion(u"");
    return metadata;
}

// A file may be read in pieces of any size.
void requireSectionsOfGrowingText(std::string_view text) {
    SectionFinder finder;
    for (std::size_t size = 1; size <= text.size(); ++size)
        finder.search(text.substr(0, size));
    const auto bodies = finder.bodies(text);
    for (std::size_t i = 0; i < kSections.size(); ++i)
        require(bodies[i] == findSection(text, kSections[i].name).value_or(""),
                "a section is found while the text grows");
}

void requireScreenshot(const KAppMetadataReader& reader) {
    using foundation::crypto::utils::Base64Error;
    const auto read = [&] {
        return fuzz::attempt<Base64Error>([&] { return reader.readScreenshotAsBytes(); });
    };
    const auto screenshot = read();
    require(screenshot == read(), "a screenshot reads the same again");
    const auto size = fuzz::attempt<Base64Error>([&] { return reader.readScreenshotSize(); });
    require(size.has_value() == screenshot.has_value(), "there is a size if there is a screenshot");
    require(
        !size || (size->format == screenshot->first && size->bytes == screenshot->second.size()),
        "its format and size are right");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const KAppMetadataReader reader(fuzz::memory::write("input.k", bytes));
    const AppMetadata metadata = reader.readMetadata();
    fuzz::requireComplete(metadata);
    require(metadata.toMap() == expectedMetadata(utf8_to_ustring(bytes)).toMap(),
            "the appendix functions find the same");
    requireSectionsOfGrowingText(bytes);
    requireScreenshot(reader);
    return 0;
}
