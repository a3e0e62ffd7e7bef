#include <opc/StandardProperties.hpp>

#include <opc/PackageNames.hpp>
#include <opc/XercesHelper.hpp>

#include <fl/i18n.hpp>
#include <foundation/JoinedText.hpp>
#include <foundation/Shown.hpp>
#include <foundation/ustring.hpp>

#include "platform/opc/src/package/W3CDate.hpp"
#include "platform/opc/src/xml/XmlReader.hpp"
#include "platform/opc/src/xml/XmlWriter.hpp"

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace opc::qzservices {

using foundation::shown;

using fl::i18n::ustring_to_utf8;
using fl::i18n::utf8_to_ustring_strict;

namespace {

struct NameSpace {
    const char* prefix;
    std::string_view uri;
};

constexpr NameSpace kCore{
    "cp", foundation::kJoinedText<names::kPackageSchemas, "/metadata/core-properties">.data()};
constexpr NameSpace kDublinCore{"dc", "http://purl.org/dc/elements/1.1/"};
constexpr NameSpace kTerms{"dcterms", "http://purl.org/dc/terms/"};
constexpr NameSpace kInstance{"xsi", xml::kSchemaInstance};
constexpr std::string_view kMarkupCompatibility =
    "http://schemas.openxmlformats.org/markup-compatibility/2006";
constexpr std::string_view kDateType = "W3CDTF";
constexpr xml::Name kTypeAttribute{xml::kSchemaInstance, "type"};
constexpr xml::Name kKeywordValue{kCore.uri, "value"};

std::string qualified(const NameSpace& nameSpace, std::string_view local) {
    return std::string(nameSpace.prefix) + ':' + std::string(local);
}

}  // namespace

enum class Kind : unsigned char { Text, Date, Keywords };

// One element of the schema, and the field for its value if it has an accessor.
struct StandardProperties::Row {
    NameSpace nameSpace;
    std::string_view local;
    Kind kind = Kind::Text;
    std::optional<ustring> CoreProperties::*field = nullptr;

    xml::Name name() const { return {nameSpace.uri, local}; }
    bool isModified() const { return kind == Kind::Date && local == "modified"; }
};

constinit const StandardProperties::Row StandardProperties::kRows[] = {
    {kDublinCore, "title", Kind::Text, &CoreProperties::title_},
    {kDublinCore, "subject"},
    {kDublinCore, "creator", Kind::Text, &CoreProperties::createdBy_},
    {kCore, "keywords", Kind::Keywords},
    {kDublinCore, "description", Kind::Text, &CoreProperties::description_},
    {kCore, "lastModifiedBy"},
    {kCore, "revision"},
    {kCore, "lastPrinted"},
    {kTerms, "created", Kind::Date},
    {kTerms, "modified", Kind::Date},
    {kCore, "category"},
    {kCore, "contentStatus"},
    {kCore, "contentType", Kind::Text, &CoreProperties::contentType_},
    {kDublinCore, "identifier"},
    {kDublinCore, "language"},
    {kCore, "version", Kind::Text, &CoreProperties::version_},
};

// Reads the element coreProperties with properties in it; keywords may contain value elements.
// Refuses anything else.
class StandardProperties::Reader final : public xml::Handler {
public:
    explicit Reader(CoreProperties& properties) : properties_(&properties) {}

    void start(const xml::StartTag& tag) override {
        refuseMarkupCompatibility(tag);
        switch (++depth_) {
            case 1:
                return startRoot(tag);
            case 2:
                return startProperty(tag);
            default:
                return startValue(tag);
        }
    }

    void end() override {
        --depth_;
        if (depth_ == 2) startPiece_ = true;
        if (depth_ == 1) store();
    }

    void text(std::string_view characters) override {
        if (depth_ == 1) {
            if (!xml::isBlank(characters))
                throw xml::Refusal("unexpected text between properties; remove it");
            return;
        }
        if (std::exchange(startPiece_, false)) pieces_.emplace_back("", false);
        pieces_.back().first += characters;
    }

private:
    // Its elements would make this another document for a reader that knows other namespaces.
    static void refuseMarkupCompatibility(const xml::StartTag& tag) {
        const auto declared = tag.declarations();
        if (std::ranges::find(declared, kMarkupCompatibility, &xml::Declaration::nameSpace) !=
            declared.end()) {
            throw xml::Refusal("declares the namespace " + std::string(kMarkupCompatibility) +
                               ", which core properties may not use; remove it");
        }
    }
    static void startRoot(const xml::StartTag& tag) {
        if (tag.name() != xml::Name{kCore.uri, "coreProperties"}) {
            throw xml::Refusal("the root is \"" + std::string(tag.name().local) +
                               "\"; expected coreProperties of " + std::string(kCore.uri));
        }
        xml::refuseRootAttributes(tag);
    }

    void startProperty(const xml::StartTag& tag) {
        row_ = std::ranges::find(kRows, tag.name(), &Row::name);
        if (row_ == std::end(kRows)) {
            throw xml::Refusal("\"" + shown(tag.name().local) + "\" of namespace \"" +
                               shown(tag.name().nameSpace) +
                               "\" is not a core property; remove it");
        }
        if (!seen_.insert(row_).second) {
            throw xml::Refusal("a second " + std::string(row_->local) + "; remove one of them");
        }
        checkAttributes(tag);
        pieces_.clear();
        startPiece_ = true;
    }

    void startValue(const xml::StartTag& tag) {
        const bool allowed =
            depth_ == 3 && row_->kind == Kind::Keywords && tag.name() == kKeywordValue;
        if (!allowed) {
            throw xml::Refusal("unexpected element \"" + shown(tag.name().local) + "\" in " +
                               std::string(row_->local) + "; expected text only");
        }
        for (const auto& attribute : tag.attributes())
            xml::refuseAttribute(attribute.name);
        pieces_.emplace_back("", true);
        startPiece_ = false;
    }

    void checkAttributes(const xml::StartTag& tag) const {
        bool typed = false;
        for (const auto& attribute : tag.attributes()) {
            if (row_->kind != Kind::Date || attribute.name != kTypeAttribute) {
                xml::refuseAttribute(attribute.name);
            }
            typed = tag.resolve(attribute.value) == xml::Name{kTerms.uri, kDateType};
        }
        if (row_->kind == Kind::Date && !typed) {
            throw xml::Refusal(std::string(row_->local) + " needs xsi:type=\"dcterms:W3CDTF\"");
        }
    }

    void store() {
        std::string joined;
        for (const auto& [text, isValue] : pieces_)
            joined += text;
        if (row_->kind == Kind::Date) storeDate(joined);
        if (row_->field != nullptr) {
            properties_->*row_->field = utf8_to_ustring_strict(joined);
        } else if (!row_->isModified()) {
            storeOther();
        }
    }

    void storeDate(const std::string& text) {
        const auto date = parseW3CDate(text);
        if (!date) {
            throw xml::Refusal(std::string(row_->local) + " \"" + shown(text) +
                               "\" is not a date; expected one such as 2026-11-21T10:15:30Z");
        }
        if (row_->isModified()) properties_->modified_ = *date;
    }

    void storeOther() {
        auto& kept = properties_->others_[std::string(row_->local)];
        for (const auto& [text, isValue] : pieces_) {
            kept.push_back({utf8_to_ustring_strict(text), isValue});
        }
    }

    CoreProperties* properties_;
    int depth_ = 0;
    const Row* row_ = nullptr;
    std::set<const Row*> seen_;
    std::vector<std::pair<std::string, bool>> pieces_;  // text, and whether it is a keyword's value
    bool startPiece_ = false;
};

void StandardProperties::parse(std::string_view document, const std::string& where,
                               CoreProperties& properties) {
    Reader reader(properties);
    xml::read(document, where, reader);
}

// The text of a row's element; nullopt if `properties` does not have the property.
std::optional<std::vector<CoreProperties::Piece>> StandardProperties::piecesOf(
    const CoreProperties& properties, const Row& row) {
    using Pieces = std::vector<CoreProperties::Piece>;
    if (row.field != nullptr) {
        const auto& value = properties.*row.field;
        return value ? std::optional(Pieces{{*value}}) : std::nullopt;
    }
    if (row.isModified()) {
        if (!properties.modified_) return std::nullopt;
        return Pieces{{utf8_to_ustring_strict(formatW3CDate(*properties.modified_))}};
    }
    const auto other = properties.others_.find(std::string(row.local));
    return other == properties.others_.end() ? std::nullopt : std::optional(other->second);
}

void StandardProperties::writeProperty(xml::XmlWriter& writer, const Row& row,
                                       const std::vector<CoreProperties::Piece>& pieces) {
    const auto element = qualified(row.nameSpace, row.local);
    const auto value = qualified(kCore, kKeywordValue.local);
    writer.start(element);
    if (row.kind == Kind::Date) {
        writer.attribute(qualified(kInstance, "type"), qualified(kTerms, kDateType));
    }
    for (const auto& piece : pieces) {
        model::requireXmlText(piece.text, utf8_to_ustring_strict(row.local));
        if (piece.isValue) writer.start(value);
        writer.text(ustring_to_utf8(piece.text));
        if (piece.isValue) writer.end(value);
    }
    writer.end(element);
}

std::string StandardProperties::toXml(const CoreProperties& properties) {
    xml::XmlWriter writer;
    const auto root = qualified(kCore, "coreProperties");
    writer.start(root);
    for (const auto& used : {kCore, kDublinCore, kTerms, kInstance}) {
        writer.attribute("xmlns:" + std::string(used.prefix), used.uri);
    }
    for (const Row& row : kRows) {
        if (const auto pieces = piecesOf(properties, row)) writeProperty(writer, row, *pieces);
    }
    writer.end(root);
    return std::move(writer).take();
}

}  // namespace opc::qzservices
