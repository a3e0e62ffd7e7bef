// The relationships of a package: any document, and tables against the list that they were made from.

#include <opc/Exception.hpp>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/Fuzzing.hpp"
#include "fuzz/XmlText.hpp"
#include "platform/opc/Ascii.hpp"
#include "platform/opc/RelationshipsPart.hpp"

namespace {

using fuzz::require;
using opc::model::Relationship;
using opc::model::RelationshipsPart;
using opc::model::TargetMode;
using opc::model::URI;
using Rows = std::vector<Relationship>;

bool startsXmlName(char16_t unit) {
    // Of the units that an input can hold beyond ASCII, those that names can hold.
    static constexpr std::u16string_view kLetters = u"\u00E9\u0130\u03A3\u4E2D\uFEFF\uFFFD";
    return opc::ascii::isLetter(unit) || unit == u'_' || kLetters.find(unit) != kLetters.npos;
}

bool isXmlName(const std::u16string& text) {
    return !text.empty() && startsXmlName(text.front()) &&
           std::ranges::all_of(text, [](char16_t unit) {
               return startsXmlName(unit) || opc::ascii::isDigit(unit) || unit == u'-' ||
                      unit == u'.';
           });
}

bool holds(const Rows& rows, const std::u16string& id) {
    return std::ranges::any_of(rows, [&](const Relationship& row) { return row.getID() == id; });
}

bool isValid(const Rows& rows) {
    Rows earlier;
    for (const Relationship& row : rows) {
        const bool isText =
            fuzz::isXmlText(row.getType()) && fuzz::isXmlText(row.getTargetURI().toString());
        if (!isText || row.getType().empty()) return false;
        if (!isXmlName(row.getID()) || holds(earlier, row.getID())) return false;
        earlier.push_back(row);
    }
    return true;
}

std::string documentOf(const Rows& rows) {
    std::string xml =
        R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)";
    for (const Relationship& row : rows) {
        xml += "<Relationship Id=\"" + fuzz::xmlText(row.getID()) + "\" Type=\"" +
               fuzz::xmlText(row.getType()) + "\" Target=\"" +
               fuzz::xmlText(row.getTargetURI().toString()) + "\"";
        if (row.getTargetMode() == TargetMode::External) xml += " TargetMode=\"External\"";
        xml += "/>";
    }
    return xml + "</Relationships>";
}

std::optional<RelationshipsPart> parse(std::string_view document) {
    try {
        return RelationshipsPart::parse(document, "file");
    } catch (const opc::Exception&) {
        return std::nullopt;
    }
}

void checkRoundTrip(const RelationshipsPart& part) {
    require(parse(part.toXml()) == part, "what is written reads back");
}

std::u16string idFrom(fuzz::Input& input) {
    static constexpr const char16_t* kIds[] = {u"", u"rId1", u"rId2", u"rId3", u"a", u"rId01"};
    return input.flag() ? input.oneOf(kIds) : input.units();
}

Relationship rowFrom(fuzz::Input& input) {
    auto id = idFrom(input);
    auto type = input.flag() ? u"urn:type" : input.units();
    URI target(input.units());
    return {std::move(id), std::move(type), std::move(target),
            input.flag() ? TargetMode::External : TargetMode::Internal};
}

void create(RelationshipsPart& part, Rows& rows, const Relationship& wanted) {
    const auto id = wanted.getID();
    const Rows probe{Relationship(id.empty() ? u"free" : id, wanted.getType(),
                                  wanted.getTargetURI(), TargetMode::Internal)};
    const bool isRefused = fuzz::refuses<opc::Exception>(
        [&] { part.create(wanted.getType(), wanted.getTargetURI(), id); });
    require(isRefused == (!isValid(probe) || holds(rows, id)), "a wrong relationship is refused");
    if (isRefused) return;
    const auto made = part.all().back();
    require(isXmlName(made.getID()) && !holds(rows, made.getID()), "the id is free");
    require(id.empty() || made.getID() == id, "the id is the wanted one");
    rows.emplace_back(made.getID(), wanted.getType(), wanted.getTargetURI(), TargetMode::Internal);
}

void remove(RelationshipsPart& part, Rows& rows, const std::u16string& id) {
    require(part.remove(id) == holds(rows, id), "a relationship that is there is removed");
    std::erase_if(rows, [&](const Relationship& row) { return row.getID() == id; });
}

void runProgram(fuzz::Input& input) {
    Rows rows;
    for (auto count = input.below(8); count > 0; --count)
        rows.push_back(rowFrom(input));
    auto part = parse(documentOf(rows));
    require(part.has_value() == isValid(rows), "a part is refused exactly when it breaks a rule");
    if (!part) return;
    require(part->all() == rows, "every relationship is read, in order");
    while (!input.empty()) {
        if (input.flag()) {
            create(*part, rows, rowFrom(input));
        } else {
            remove(*part, rows, idFrom(input));
        }
        require(part->all() == rows, "nothing else changes");
    }
    checkRoundTrip(*part);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    if (!input.startsWith("<")) {
        runProgram(input);
    } else if (const auto part = parse(input.rest())) {
        checkRoundTrip(*part);
    }
    return 0;
}
