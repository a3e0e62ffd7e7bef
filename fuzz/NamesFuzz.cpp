// Part names against the expression that defines them, and targets against the names that they lead to.

#include <opc/Exception.hpp>
#include <opc/Names.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <regex>
#include <string>

#include "fuzz/Fuzzing.hpp"

namespace {

using fuzz::require;
using opc::model::PartName;
using opc::model::URI;

// An expression recurses once a character.
constexpr std::size_t kLongestInput = 400;

constexpr char kSegment[] =
    "(/"
    "([-A-Za-z0-9._~!$&'()*+,;=:@]|%[0-9A-Fa-f]{2})*([-A-Za-z0-9_~!$&'()*+,;=:@]|%[0-9A-Fa-f]{2}))"
    "+";
// A slash, a backslash, or what need not be encoded.
constexpr char kForbiddenEncoding[] =
    "%(2[DEFdef]|3[0-9]|[46][1-9A-Fa-f]|[57][0-9Aa]|5[CFcf]|7[Ee])";

bool isPartName(const std::u16string& text) {
    static const std::regex segments(kSegment);
    static const std::regex forbidden(kForbiddenEncoding);
    const bool isAscii = std::ranges::all_of(text, [](char16_t unit) { return unit < 0x80; });
    const std::string narrow(text.begin(), text.end());
    return isAscii && std::regex_match(narrow, segments) && !std::regex_search(narrow, forbidden);
}

std::string folded(const std::u16string& text) {
    std::string lower(text.begin(), text.end());
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z') c = char(c + ('a' - 'A'));
    return lower;
}

std::optional<PartName> nameOf(const std::u16string& text) {
    try {
        return PartName(std::u16string_view(text));
    } catch (const opc::Exception&) {
        return std::nullopt;
    }
}

std::optional<PartName> targetOf(const std::u16string& text) {
    try {
        return PartName(URI(text));
    } catch (const opc::Exception&) {
        return std::nullopt;
    }
}

void checkExtension(const PartName& name) {
    const std::u16string last = name.toString().substr(name.toString().rfind(u'/') + 1);
    const auto dot = last.rfind(u'.');
    const auto expected = dot == last.npos ? u"" : last.substr(dot + 1);
    require(name.getExtension() == expected, "the extension is that of the last segment");
}

// The ways to write a target that lead to `name`.
void checkTargets(const PartName& name, fuzz::Input& input) {
    const std::u16string relative = name.toString().substr(1);
    for (const char16_t* front :
         {u"/", u"./", u"/./", u"../", u"x/../", u"/x/y/../../", u"/.././"}) {
        require(targetOf(front + relative) == name, "dot segments go");
    }
    require(targetOf(name.toString() + u"#fragment") == name, "a fragment goes");
    require(!targetOf(name.toString() + u"?query"), "a query is refused");
    require(!targetOf(name.toString() + u"/."), "a folder is no part");
    const bool hasColon = relative.substr(0, relative.find(u'/')).find(u':') != relative.npos;
    if (!hasColon) require(targetOf(relative) == name, "a relative target starts at the root");

    // Any of its characters percent-encoded, in upper or lower case.
    std::u16string encoded = name.toString();
    const auto at = input.below(std::min<std::size_t>(encoded.size(), 256));
    const bool stands = encoded[at] != u'/' && encoded[at] != u'%' &&
                        (at < 1 || encoded[at - 1] != u'%') && (at < 2 || encoded[at - 2] != u'%');
    if (!stands || std::u16string(u"!$&'()*+,;=:@").find(encoded[at]) != encoded.npos) return;
    char digits[4];
    std::snprintf(digits, sizeof digits, input.flag() ? "%%%02X" : "%%%02x", unsigned(encoded[at]));
    encoded.replace(at, 1, std::u16string(digits, digits + 3));
    require(targetOf(encoded) == name, "percent-encoding of what need not be encoded goes");
}

void checkName(const std::u16string& text, fuzz::Input& input) {
    const auto name = nameOf(text);
    std::string reason;
    require(name.has_value() == isPartName(text), "the name is one that the expression matches");
    require(PartName::isValid(text, &reason) == name.has_value(), "both checks agree");
    require(reason.empty() == name.has_value(), "a refusal has a reason");
    if (!name) return;
    require(name->toString() == text && name->key() == folded(text), "a name is kept as spelled");
    require(targetOf(text) == name, "a name leads to itself");
    require(PartName(name->getURI()) == *name, "a name's target leads to it");
    checkExtension(*name);
    checkTargets(*name, input);
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
    const bool isSame = folded(a->toString()) == folded(b->toString());
    require((*a == *b) == isSame && (*b == *a) == isSame, "names are equal ignoring case");
    require((*a < *b) + (*b < *a) + (*a == *b) == 1, "of two names one comes first");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > kLongestInput) return -1;
    fuzz::Input input(data, size);
    const auto first = input.units();
    const auto second = input.units();
    checkName(first, input);
    checkTarget(first);
    checkTarget(second);
    checkEquality(first, second);
    return 0;
}
