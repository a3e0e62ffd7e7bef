// The content types of a package: what was read from a document and written again reads back the
// same, and equal names have one type. PackageEditFuzz edits them.

#include <opc/Exception.hpp>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "fuzz/Fuzzing.hpp"
#include "platform/opc/src/Ascii.hpp"
#include "platform/opc/src/package/ContentTypes.hpp"

namespace {

using fuzz::require;
using opc::model::ContentType;
using opc::model::ContentTypes;
using opc::model::PartName;

std::optional<ContentTypes> parse(std::string_view document) {
    return fuzz::attempt<opc::Exception>([&] { return ContentTypes::parse(document, "file"); });
}

std::optional<ContentType> typeOf(const ContentTypes& types, const PartName& name) {
    const ContentType* const type = types.find(name);
    return type == nullptr ? std::nullopt : std::optional(*type);
}

std::u16string lowered(const PartName& name) {
    return opc::ascii::lowered<char16_t>(name.toString());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto types = parse(fuzz::Input(data, size).rest());
    if (!types) return 0;
    const auto again = parse(types->toXml());
    require(again == types, "what is written reads back");
    std::vector<PartName> names = types->overrides();
    std::set<std::u16string> folded;
    for (const PartName& name : names)
        require(folded.insert(lowered(name)).second, "a name has one type");
    for (const char16_t* other : {u"/a.xml", u"/A.XML", u"/b/c.Xml", u"/a", u"/x.rels", u"/x.k"})
        names.emplace_back(std::u16string_view(other));
    for (const PartName& name : names) {
        require(typeOf(*again, name) == typeOf(*types, name), "and answers the same");
        const PartName lower{std::u16string_view(lowered(name))};
        require(typeOf(*types, lower) == typeOf(*types, name), "equal names have the same type");
    }
    return 0;
}
