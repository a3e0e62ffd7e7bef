// The relationships of a package: what was read from a document and written again reads back the
// same, and no two have the same identifier. PackageEditFuzz edits them.

#include <opc/Exception.hpp>

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "fuzz/Fuzzing.hpp"
#include "platform/opc/src/package/RelationshipsPart.hpp"

namespace {

using opc::model::RelationshipsPart;

std::optional<RelationshipsPart> parse(std::string_view document) {
    return fuzz::attempt<opc::Exception>(
        [&] { return RelationshipsPart::parse(document, "file"); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto part = parse(fuzz::Input(data, size).rest());
    if (!part) return 0;
    fuzz::require(parse(part->toXml()) == part, "what is written reads back");
    std::set<std::u16string> ids;
    for (const auto& each : part->all())
        fuzz::require(ids.insert(each.getID()).second, "an id is one relationship's");
    return 0;
}
