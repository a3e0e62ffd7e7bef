// Compares the check of part names with the expression that defines them, and targets with the
// names to which they lead.

#include <opc/Exception.hpp>
#include <opc/PartName.hpp>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <regex>
#include <string>

#include "fuzz/Fuzzing.hpp"
#include "platform/opc/src/Ascii.hpp"

namespace {

using fuzz::require;
using opc::model::PartName;
using opc::model::URI;

// The expression recurses once for each character.
constexpr std::size_t kLongestInput = 400;

bool isPartName(const std::u16string& text) {
    static const std::regex segments(
        "(/([-A-Za-z0-9._~!$&'()*+,;=:@]|%[0-9A-Fa-f]{2})*"
        "([-A-Za-z0-9_~!$&'()*+,;=:@]|%[0-9A-Fa-f]{2}))+");
    // A slash, a backslash, or a character that need not be encoded.
    static const std::regex forbidden(
        "%(2[DEFdef]|3[0-9]|[46][1-9A-Fa-f]|[57][0-9Aa]|5[CFcf]|7[Ee])");
    const bool isAscii = std::ranges::all_of(text, [](char16_t unit) { return unit < 0x80; });
    const std::string narrow(text.begin(), text.end());
    return isAscii && std::regex_match(narrow, segments) && !std::regex_search(narrow, forbidden);
}

std::optional<PartName> targetOf(const std::u16string& text) {
    return fuzz::attempt<opc::Exception>([&] { return PartName(URI(text)); });
}

void checkName(const std::u16string& text) {
    const auto name = PartName::fromName(text);
    require(name.has_value() == isPartName(text), "the name is one that the expression matches");
    if (!name) return;
    require(name->toString() == text, "a name is kept as spelled");
    for (const char16_t* front : {u"", u"/.", u"/x/.."})
        require(targetOf(front + text) == name, "a name leads to itself, and dot segments go");
    require(targetOf(text + u"#fragment") == name, "a fragment goes");
    require(!targetOf(text + u"?query"), "a query is refused");
    require(!targetOf(text + u"/."), "a folder is no part");
}

void checkTarget(const std::u16string& text) {
    const auto name = targetOf(text);
    if (!name) return;
    require(isPartName(name->toString()), "what a target leads to is a name");
    const auto again = targetOf(name->toString());
    require(again && again->toString() == name->toString(), "a normal form is normal");
}

void checkEquality(const std::u16string& first, const std::u16string& second) {
    const auto a = targetOf(first);
    const auto b = targetOf(second);
    if (!a || !b) return;
    const bool isSame = opc::ascii::equalIgnoringCase(a->toString(), b->toString());
    require((*a == *b) == isSame, "names are equal ignoring case");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > kLongestInput) return -1;
    fuzz::Input input(data, size);
    const auto first = input.units();
    const auto second = input.units();
    checkName(first);
    checkTarget(first);
    checkTarget(second);
    checkEquality(first, second);
    return 0;
}
