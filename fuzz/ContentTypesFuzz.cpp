// The content types of a package: any document, and tables against a list that is searched from the
// front.

#include <opc/Exception.hpp>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "fuzz/Fuzzing.hpp"
#include "fuzz/XmlText.hpp"
#include "platform/opc/Ascii.hpp"
#include "platform/opc/ContentTypes.hpp"

namespace {

using fuzz::require;
using opc::model::ContentType;
using opc::model::ContentTypes;
using opc::model::PartName;

struct Row {
    bool isOverride;
    std::u16string key;
    std::u16string type;
};
using Rows = std::vector<Row>;

bool isSame(const std::u16string& a, const std::u16string& b) {
    return opc::ascii::equalIgnoringCase(a, b);
}

bool isMediaType(const std::u16string& text) {
    static const std::regex expression([] {
        const std::string token = "[-!#$%&'*+.^_`|~0-9A-Za-z]+";
        const std::string quoted = R"("([ !#-\[\]-~]|\\[ -~])*")";
        return token + "/" + token + "(;" + token + "=(" + token + "|" + quoted + "))*";
    }());
    return std::ranges::all_of(text, [](char16_t unit) { return unit < 0x80; }) &&
           std::regex_match(std::string(text.begin(), text.end()), expression);
}

bool isValid(const Row& row) {
    if (!fuzz::isXmlText(row.key) || !isMediaType(row.type)) return false;
    if (row.isOverride) return PartName::isValid(row.key);
    return !row.key.empty() && row.key.find_first_of(u"./\\") == row.key.npos;
}

bool isValid(const Rows& rows) {
    for (auto row = rows.begin(); row != rows.end(); ++row) {
        const bool isSecond = std::any_of(rows.begin(), row, [&](const Row& earlier) {
            return earlier.isOverride == row->isOverride && isSame(earlier.key, row->key);
        });
        if (isSecond || !isValid(*row)) return false;
    }
    return true;
}

std::string documentOf(const Rows& rows) {
    std::string xml =
        R"(<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">)";
    for (const Row& row : rows) {
        xml += row.isOverride ? "<Override PartName=\"" : "<Default Extension=\"";
        xml += fuzz::xmlText(row.key) + "\" ContentType=\"" + fuzz::xmlText(row.type) + "\"/>";
    }
    return xml + "</Types>";
}

const Row* find(const Rows& rows, bool isOverride, const std::u16string& key) {
    const auto found = std::ranges::find_if(
        rows, [&](const Row& row) { return row.isOverride == isOverride && isSame(row.key, key); });
    return found == rows.end() ? nullptr : &*found;
}

const Row* find(const Rows& rows, const PartName& name) {
    const Row* const own = find(rows, true, name.toString());
    return own ? own : find(rows, false, name.getExtension());
}

std::vector<PartName> probes(const Rows& rows, const std::vector<PartName>& others) {
    std::vector<PartName> names = others;
    for (const Row& row : rows) {
        const auto name = row.isOverride ? row.key : u"/probe/a.b." + row.key;
        if (PartName::isValid(name)) names.emplace_back(std::u16string_view(name));
    }
    return names;
}

void compare(const ContentTypes& types, const Rows& rows, const std::vector<PartName>& others) {
    for (const PartName& name : probes(rows, others)) {
        const auto* const found = types.find(name);
        const Row* const expected = find(rows, name);
        require((found != nullptr) == (expected != nullptr), "the same names have a type");
        if (found) require(isSame(found->toString(), expected->type), "the type is the row's");
    }
}

std::optional<ContentTypes> parse(std::string_view document) {
    try {
        return ContentTypes::parse(document, "file");
    } catch (const opc::Exception&) {
        return std::nullopt;
    }
}

void checkRoundTrip(const ContentTypes& types) {
    require(parse(types.toXml()) == types, "what is written reads back");
}

std::u16string keyFrom(fuzz::Input& input) {
    static constexpr const char16_t* kKeys[] = {u"xml",    u"XML",      u"rels", u"/a.xml",
                                                u"/A.XML", u"/b/c.xml", u"/a",   u"k"};
    return input.flag() ? input.oneOf(kKeys) : input.units();
}

std::u16string typeFrom(fuzz::Input& input) {
    static constexpr const char16_t* kTypes[] = {u"a/b", u"A/B", u"a/c", u"a/b;c=d",
                                                 u"a/b;c=\"d\\\"e\""};
    return input.flag() ? input.oneOf(kTypes) : input.units();
}

void edit(ContentTypes& types, Rows& rows, const PartName& name, const std::u16string& type) {
    const Row* const current = find(rows, name);
    types.set(name, ContentType(type));
    if (current && isSame(current->type, type)) return;
    std::erase_if(
        rows, [&](const Row& row) { return row.isOverride && isSame(row.key, name.toString()); });
    rows.push_back({true, name.toString(), type});
}

void remove(ContentTypes& types, Rows& rows, const PartName& name) {
    types.removeOverride(name);
    std::erase_if(
        rows, [&](const Row& row) { return row.isOverride && isSame(row.key, name.toString()); });
}

void runProgram(fuzz::Input& input) {
    Rows rows;
    for (auto count = input.below(12); count > 0; --count)
        rows.push_back({input.flag(), keyFrom(input), typeFrom(input)});
    auto types = parse(documentOf(rows));
    require(types.has_value() == isValid(rows), "a table is refused exactly when it breaks a rule");
    if (!types) return;
    std::vector<PartName> others;
    compare(*types, rows, others);
    while (!input.empty()) {
        const auto key = keyFrom(input);
        const auto type = typeFrom(input);
        if (!PartName::isValid(key)) continue;
        const PartName name{std::u16string_view(key)};
        others.push_back(name);
        if (input.flag()) {
            remove(*types, rows, name);
        } else if (isMediaType(type)) {
            edit(*types, rows, name, type);
        }
    }
    compare(*types, rows, others);
    checkRoundTrip(*types);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    if (!input.startsWith("<")) {
        runProgram(input);
    } else if (const auto types = parse(input.rest())) {
        checkRoundTrip(*types);
    }
    return 0;
}
