#include <fmt/format.h>
#include <appserialization/AppMetadata.hpp>
#include <appserialization/Functions.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <appserialization/ustring.hpp>
#include <boost/optional.hpp>
#include <fl/i18n.hpp>
#include <foundation/Base64.hpp>
#include <foundation/ustring.hpp>
#include <opc/FileKind.hpp>

#include <algorithm>
#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "app/Error.hpp"
#include "app/FieldValues.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/Progress.hpp"
#include "app/check/Checks.hpp"
#include "app/check/Findings.hpp"
#include "textapp/Layout.hpp"

namespace qzapp {
namespace {

namespace textapp = appserialization::textapp;

using fl::i18n::utf8_to_ustring;
using foundation::ustring;
using std::string_view;
using textapp::SectionRow;

constexpr string_view kByteOrderMark = "\xEF\xBB\xBF";

// The elements that readers take from a section.
std::vector<string_view> elementsOf(const SectionRow& section) {
    std::vector<string_view> elements;
    for (const auto& text : section.texts)
        elements.push_back(text.name);
    for (const auto& list : section.lists)
        elements.push_back(list.name);
    if (!section.screenshot.empty()) elements.push_back(section.screenshot);
    return elements;
}

struct Marker {
    string_view name;  // "app:appDetails"
    std::size_t end;   // the offset after its "]"
};

// All section markers, in the order of the text. The name of a section ends where the next marker
// starts, so that names do not overlap: in "%[app:%[app:thumbnail]" only the second is a marker,
// and however many there are, each byte is searched once for each end.
std::vector<Marker> markersIn(string_view text) {
    using textapp::kAppSectionOpen, textapp::kSectionOpen, textapp::kSectionClose;
    const std::string nameEnds = std::string(kSectionClose) + "\r\n";
    std::vector<Marker> markers;
    std::size_t next = string_view::npos;
    for (std::size_t at = text.find(kAppSectionOpen); at != string_view::npos; at = next) {
        next = text.find(kAppSectionOpen, at + kAppSectionOpen.size());
        const std::size_t name = at + kSectionOpen.size();
        const string_view marker = text.substr(name, next - name);
        const std::size_t end = marker.find_first_of(nameEnds);
        if (end == string_view::npos || !marker.substr(end).starts_with(kSectionClose)) continue;
        markers.push_back({marker.substr(0, end), name + end + kSectionClose.size()});
    }
    return markers;
}

// The body of a section; nothing if it is not closed.
std::optional<string_view> bodyOf(string_view text, const Marker& marker) {
    const std::size_t start = text.find(textapp::kBodyOpen, marker.end);
    if (start == string_view::npos) return std::nullopt;
    const std::size_t body = start + textapp::kBodyOpen.size();
    const std::size_t end = text.find(textapp::kBodyClose, body);
    if (end == string_view::npos) return std::nullopt;
    return text.substr(body, end - body);
}

bool isNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

class TextChecks {
public:
    TextChecks(const FileName& file, const std::string& text, Findings& findings)
        : file_(file), text_(text), findings_(findings) {}

    void run() {
        checkEncoding();
        checkConflicts("", text_, "settle it in an editor", findings_);
        checkSections();
        checkReader();
    }

private:
    void checkEncoding() {
        try {
            static_cast<void>(fl::i18n::utf8_to_ustring_strict(text_));
        } catch (const fl::i18n::ConversionError& e) {
            findings_.add("text-encoding", "",
                          fmt::format("not valid UTF-8 at byte {} ({}); such bytes read as U+FFFD",
                                      e.index(), placeOf(text_, e.index())),
                          "save the file as UTF-8");
        }
        if (text_.starts_with(kByteOrderMark)) {
            findings_.add("text-mark", "",
                          "begins with a byte-order mark, which counts as a character",
                          "save the file as UTF-8 without byte-order mark");
        }
    }

    void checkSections() {
        std::map<string_view, std::size_t> seen;
        for (const Marker& marker : markersIn(text_))
            checkSection(marker, seen[marker.name]++);
        hasAppendix_ = std::ranges::any_of(textapp::kSections, [&](const SectionRow& section) {
            return seen.contains(section.name);
        });
        if (hasAppendix_) return;
        findings_.add("appendix-missing", "",
                      "has no appendix, so readers take the default for every field",
                      fmt::format("add the section \"{}{}{}\" (docs/format-k.md shows how)",
                                  textapp::kSectionOpen, textapp::kDetailsSection.name,
                                  textapp::kSectionClose));
    }

    void checkSection(const Marker& marker, std::size_t before) {
        const std::string name(marker.name);
        const auto known = std::ranges::find(textapp::kSections, marker.name, &SectionRow::name);
        if (known == textapp::kSections.end()) {
            if (before == 0) {
                findings_.add("section-unknown", name, "readers ignore a section of this name");
            }
        } else if (before == 1) {
            findings_.add("section-twice", name,
                          fmt::format("occurs again at {}; readers take only the first",
                                      placeOf(text_, marker.end)),
                          "keep one of them");
        } else if (before == 0) {
            if (const auto body = bodyOf(text_, marker)) {
                if (known->name == textapp::kThumbnailSection.name) thumbnail_ = *body;
                checkElements(*known, *body);
            } else {
                findings_.add(
                    "section-open", name,
                    fmt::format("the section at {} has no \"{}\", so readers ignore it",
                                placeOf(text_, marker.end), textapp::kBodyClose),
                    fmt::format("end its block comment with \"{}\"", textapp::kBodyClose));
            }
        }
    }

    // Checks the elements of a section. What is inside an element is its text and is not looked at.
    void checkElements(const SectionRow& section, string_view body) {
        const std::vector<string_view> known = elementsOf(section);
        std::map<string_view, std::size_t> seen;
        for (std::size_t at = 0; (at = body.find('<', at)) != string_view::npos;) {
            std::size_t end = ++at;
            while (end < body.size() && isNameCharacter(body[end]))
                ++end;
            const string_view name = body.substr(at, end - at);
            at = end;
            if (name.empty()) continue;  // an end tag, or a stray sign
            const std::string endTag = fmt::format("</{}>", name);
            const std::size_t close = body.find(endTag, at);
            checkElement(section.name, known, name, seen[name]++, close != string_view::npos);
            if (close == string_view::npos) return;  // the rest may be the text of this element
            at = close + endTag.size();
        }
    }

    void checkElement(string_view section, const std::vector<string_view>& known, string_view name,
                      std::size_t before, bool isClosed) {
        const std::string part(section);
        if (std::ranges::find(known, name) == known.end()) {
            const auto prefix = std::ranges::find_if(
                known, [&](string_view element) { return name.starts_with(element); });
            if (prefix != known.end()) {
                findings_.add("element-prefix", part,
                              fmt::format("readers take <{}> for <{}>", name, *prefix),
                              "rename the element, or remove it");
            } else if (before == 0) {
                findings_.add("element-unknown", part,
                              fmt::format("has an element <{}>, which readers ignore", name));
            }
        } else if (!isClosed) {
            findings_.add(
                "element-open", part,
                fmt::format("<{}> has no end tag </{}>, so it reads as absent", name, name),
                fmt::format("add </{}>", name));
        } else if (before == 1) {
            findings_.add("element-twice", part,
                          fmt::format("has several elements <{}>; readers take the first", name),
                          "keep one of them");
        }
    }

    void checkReader() {
        try {
            about(file_, [&] {
                const appserialization::KAppMetadataReader reader(file_.native());
                if (hasAppendix_) checkFields(reader.readMetadata());
                checkThumbnail(reader);
            });
        } catch (const Error& e) {
            if (e.isPassing()) throw;
            findings_.add("text-refused", "", e.text());
        }
    }

    void checkFields(const appserialization::AppMetadata& metadata) {
        const auto fix = [](string_view element) {
            return fmt::format("write <{}>...</{}> into section {}", element, element,
                               textapp::kDetailsSection.name);
        };
        if (metadata.getName().value_or(u"").empty()) {
            findings_.add("name-missing", "", "Name is empty; people see an app without a name",
                          fix("Name"));
        }
        const std::pair<const char*, boost::optional<ustring>> fields[] = {
            {"Author", metadata.getAuthor()},
            {"Summary", metadata.getSummary()},
            {"Description", metadata.getDescription()}};
        for (const auto& [name, value] : fields) {
            if (!value.value_or(u"").empty()) continue;
            findings_.add("field-empty", "", fmt::format("{} is empty", name), fix(name));
        }
        const std::pair<Field, string_view> internals[] = {
            {Field::Uuid, "AppId"},
            {Field::MinimumSupportedKORVALRelease, "MinimumSupportedKORVALRelease"},
            {Field::KORVALRelease, "KORVALRelease"}};
        for (const auto& [field, element] : internals) {
            checkValue(
                field, std::get<ustring>(valueOf(metadata, field)),
                fmt::format("correct <{}> in section {}", element, textapp::kInternalSection.name),
                findings_);
        }
    }

    void checkThumbnail(const appserialization::KAppMetadataReader& reader) {
        const std::string part(textapp::kThumbnailSection.name);
        checkCapture();
        try {
            const auto [format, bytes] = reader.readScreenshotAsBytes();
            if (!format.empty()) {
                const string_view image(reinterpret_cast<const char*>(bytes.data()), bytes.size());
                const auto lower = fl::i18n::to_lower(format);
                checkImage(part, fl::i18n::to_display(lower), image,
                           "set a whole image as the app's screenshot in its editor", findings_);
            } else if (hasThumbnailText()) {
                findings_.add(
                    "thumbnail-uri", part,
                    "its text is not a data URI of an image, so the app has no screenshot",
                    fmt::format("begin it with \"{}png{}\", without white space",
                                textapp::kImageUriStart, textapp::kPayloadMarker));
            }
        } catch (const foundation::crypto::utils::Base64Error& e) {
            findings_.add("thumbnail-base64", part, e.what(),
                          "encode the image again, and put it on one line");
        }
    }

    bool hasThumbnailText() const {
        ustring text;
        appserialization::readXMLElement(utf8_to_ustring(thumbnail_),
                                         utf8_to_ustring(textapp::kThumbnail), text);
        return !text.empty();
    }

    void checkCapture() {
        const std::size_t tag = thumbnail_.find("<" + std::string(textapp::kThumbnail));
        if (tag == string_view::npos) return;
        const string_view start = thumbnail_.substr(tag, thumbnail_.find('>', tag) - tag);
        ustring value;
        appserialization::readXMLElementAttribute(utf8_to_ustring(start) + u">",
                                                  utf8_to_ustring(textapp::kThumbnail),
                                                  utf8_to_ustring(textapp::kAutoCapture), value);
        const bool isGiven = start.find(textapp::kAutoCapture) != string_view::npos;
        if (!isGiven || value == u"true" || value == u"false") return;
        const string_view name = textapp::kAutoCapture;
        findings_.add(
            "capture-value", std::string(textapp::kThumbnailSection.name),
            value.empty()
                ? fmt::format("{} has no value in single quotes; it reads as true", name)
                : fmt::format("{} is \"{}\"; it reads as true", name, fl::i18n::to_display(value)),
            fmt::format("write {}='true' or {}='false'", name, name));
    }

    const FileName& file_;
    const std::string& text_;
    Findings& findings_;
    bool hasAppendix_ = false;
    string_view thumbnail_;  // the body of its section
};

}  // namespace

void checkText(const FileName& file, Findings& findings) {
    try {
        const Progress progress(2 * sizeOf(file));  // read here, and again by KAppMetadataReader
        const std::string text =
            readBytes(file, appserialization::KAppMetadataReader::kLargestFile);
        const auto kind = opc::FileKind::of(std::as_bytes(std::span(text)));
        if (const auto wrong = whyNoText(kind)) {
            findings.add("text-kind", "", wrong->what, wrong->fix);
        } else {
            TextChecks(file, text, findings).run();
        }
    } catch (const Error& e) {
        if (e.isPassing()) throw;
        findings.add("text-refused", "", e.text());
    }
}

}  // namespace qzapp
