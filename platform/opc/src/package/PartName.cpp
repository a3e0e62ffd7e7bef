#include <opc/PartName.hpp>

#include <opc/Exception.hpp>

#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>

#include "platform/opc/src/Ascii.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <vector>

namespace opc::model {

using foundation::shown;

namespace {

constexpr std::string_view kHexDigits = "0123456789ABCDEF";

constexpr bool isUnreserved(char16_t unit) {
    return ascii::isLetter(unit) || ascii::isDigit(unit) || unit == u'-' || unit == u'.' ||
           unit == u'_' || unit == u'~';
}

// The characters of a URI path segment, other than "%".
constexpr std::array<bool, 128> kSegmentCharacters = [] {
    std::array<bool, 128> table{};
    for (std::size_t unit = 0; unit < table.size(); ++unit)
        table[unit] = isUnreserved(static_cast<char16_t>(unit));
    for (const char other : std::string_view("!$&'()*+,;=:@"))
        table[static_cast<unsigned char>(other)] = true;
    return table;
}();

bool isSegmentCharacter(char16_t unit) {
    return unit < kSegmentCharacters.size() && kSegmentCharacters[unit];
}

int hexValue(char16_t unit) {
    if (unit > 127) return -1;
    const auto found = kHexDigits.find(ascii::toUpper(char(unit)));
    return found == std::string_view::npos ? -1 : int(found);
}

// The byte that the percent-encoding at `position` stands for, or -1 if there is no
// percent-encoding.
int decodePercent(ustring_view text, std::size_t position) {
    if (position + 2 >= text.size()) return -1;
    const int high = hexValue(text[position + 1]);
    const int low = hexValue(text[position + 2]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

// Why the percent-encoding at `position` may not be in a part name; empty if it may.
std::string percentFault(ustring_view segment, std::size_t position) {
    const int byte = decodePercent(segment, position);
    if (byte < 0) return "has a \"%\" that is not followed by two hexadecimal digits";
    if (byte == '/' || byte == '\\') return "has a percent-encoded slash or backslash";
    if (isUnreserved(char16_t(byte))) {
        return "percent-encodes \"" + std::string(1, char(byte)) +
               "\", which must be written as it is";
    }
    return {};
}

std::string segmentFault(ustring_view segment) {
    if (segment.empty()) return "has an empty segment";
    for (std::size_t i = 0; i < segment.size(); ++i) {
        if (segment[i] == u'%') {
            if (auto fault = percentFault(segment, i); !fault.empty()) return fault;
        } else if (!isSegmentCharacter(segment[i])) {
            return "has the character \"" + shown(segment.substr(i, 1)) +
                   "\", which must be percent-encoded";
        }
    }
    // This also refuses the segments "." and "..".
    if (segment.back() == u'.') return "has a segment that ends in a dot";
    return {};
}

// Why `name` is not a part name; empty if it is one.
std::string nameFault(ustring_view name) {
    if (name.empty()) return "is empty";
    if (name.front() != u'/') return "does not start with \"/\"";
    if (name.back() == u'/') return "ends in \"/\"";
    for (std::size_t start = 1; start <= name.size();) {
        const auto end = std::min(name.find(u'/', start), name.size());
        if (auto fault = segmentFault(name.substr(start, end - start)); !fault.empty()) {
            return fault;
        }
        start = end + 1;
    }
    return {};
}

ustring checkedName(ustring_view name) {
    if (const auto fault = nameFault(name); !fault.empty()) {
        throw Exception("part name \"" + shown(name) + "\" " + fault);
    }
    return ustring(name);
}

[[noreturn]] void refuseTarget(const URI& target, const char* fault) {
    throw Exception("target \"" + shown(target.toString()) +
                    "\" cannot name a part of a package: " + fault);
}

bool startsWithScheme(ustring_view text) {
    const auto end = text.find_first_of(u":/?#");
    return end != ustring_view::npos && end > 0 && text[end] == u':' && ascii::isLetter(text[0]);
}

// The segments of a path, with "." and ".." resolved. A ".." at the root has no effect.
std::vector<ustring_view> resolvedSegments(ustring_view path) {
    std::vector<ustring_view> segments;
    for (std::size_t start = path.starts_with(u'/') ? 1 : 0; start <= path.size();) {
        const auto end = std::min(path.find(u'/', start), path.size());
        const auto segment = path.substr(start, end - start);
        const bool up = segment == u"..";
        if (up && !segments.empty()) segments.pop_back();
        if (!up && segment != u".") segments.push_back(segment);
        // A dot segment at the end names a folder. The empty segment makes the name invalid,
        // because a folder is not a part.
        if ((up || segment == u".") && end == path.size()) segments.emplace_back();
        start = end + 1;
    }
    return segments;
}

void appendPercent(ustring& out, unsigned char byte) {
    out += u'%';
    out += char16_t(kHexDigits[byte >> 4]);
    out += char16_t(kHexDigits[byte & 15]);
}

// Appends a segment with its percent-encoding in normal form: unreserved characters are decoded,
// characters that a segment cannot hold are encoded, and digits are in upper case. From a "%" that
// starts no encoding on, the segment stays as it is and will be refused. Decoding what follows
// could turn that "%" into an encoding.
void appendNormalized(ustring& out, ustring_view segment) {
    for (std::size_t i = 0; i < segment.size(); ++i) {
        const int byte = segment[i] == u'%' ? decodePercent(segment, i) : -1;
        if (byte >= 0) {
            i += 2;
            if (isUnreserved(char16_t(byte))) {
                out += char16_t(byte);
            } else {
                appendPercent(out, static_cast<unsigned char>(byte));
            }
        } else if (segment[i] == u'%') {
            out += segment.substr(i);
            return;
        } else if (isSegmentCharacter(segment[i])) {
            out += segment[i];
        } else {
            const bool pair = segment[i] >= 0xD800 && segment[i] < 0xDC00 && i + 1 < segment.size();
            const auto bytes = fl::i18n::ustring_to_utf8(segment.substr(i, pair ? 2 : 1));
            for (const char byteOfCharacter : bytes) {
                appendPercent(out, static_cast<unsigned char>(byteOfCharacter));
            }
            if (pair) ++i;
        }
    }
}

ustring resolvedPath(const URI& target) {
    ustring_view text = target.toString();
    if (fl::i18n::find_unpaired_surrogate(text) != ustring::npos) {
        refuseTarget(target, "it is not valid UTF-16");
    }
    if (startsWithScheme(text)) refuseTarget(target, "it starts with a scheme");
    if (text.starts_with(u"//")) refuseTarget(target, "it starts with a host");
    text = text.substr(0, text.find(u'#'));
    if (text.find(u'?') != ustring_view::npos) refuseTarget(target, "it has a query");
    ustring path;
    for (const auto segment : resolvedSegments(text)) {
        path += u'/';
        appendNormalized(path, segment);
    }
    return path;
}

std::string lowerKey(ustring_view name) {
    std::string key;
    key.reserve(name.size());
    for (const char16_t unit : name)
        key += ascii::toLower(char(unit));
    return key;
}

bool isTokenCharacter(char16_t unit) {
    constexpr ustring_view kOthers = u"!#$%&'*+-.^_`|~";
    return ascii::isLetter(unit) || ascii::isDigit(unit) ||
           kOthers.find(unit) != ustring_view::npos;
}

// Checks the syntax of a media type from front to back.
class MediaTypeScanner {
public:
    explicit MediaTypeScanner(ustring_view text) : rest_(text) {}

    bool matches() {
        if (!token() || !skip(u'/') || !token()) return false;
        while (!rest_.empty()) {
            if (!skip(u';') || !token() || !skip(u'=') || !(token() || quoted())) return false;
        }
        return true;
    }

private:
    bool skip(char16_t unit) {
        if (rest_.empty() || rest_.front() != unit) return false;
        rest_.remove_prefix(1);
        return true;
    }

    bool token() {
        std::size_t length = 0;
        while (length < rest_.size() && isTokenCharacter(rest_[length]))
            ++length;
        rest_.remove_prefix(length);
        return length > 0;
    }

    bool quoted() {
        if (!skip(u'"')) return false;
        while (!rest_.empty() && rest_.front() != u'"') {
            if (rest_.front() == u'\\' && rest_.size() > 1) rest_.remove_prefix(1);
            if (rest_.front() < u' ' || rest_.front() > u'~') return false;
            rest_.remove_prefix(1);
        }
        return skip(u'"');
    }

    ustring_view rest_;
};

}  // namespace

URI::URI(ustring text) : text_(std::move(text)) {}

PartName::PartName(Checked, ustring name) : name_(std::move(name)), key_(lowerKey(name_)) {}

PartName::PartName(ustring_view name) : PartName(Checked(), checkedName(name)) {}

PartName::PartName(const URI& target) : PartName(ustring_view(resolvedPath(target))) {}

std::optional<PartName> PartName::fromName(ustring name, std::string* reason) {
    if (!isValid(name, reason)) return std::nullopt;
    return PartName(Checked(), std::move(name));
}

std::optional<PartName> PartName::fromTarget(const URI& target) {
    try {
        return PartName(target);
    } catch (const Exception&) {
        return std::nullopt;
    }
}

bool PartName::isValid(ustring_view name, std::string* reason) {
    auto fault = nameFault(name);
    const bool valid = fault.empty();
    if (reason != nullptr) *reason = std::move(fault);
    return valid;
}

ustring PartName::getExtension() const {
    const auto dot = name_.rfind(u'.');
    if (dot == ustring::npos || dot < name_.rfind(u'/')) return {};
    return name_.substr(dot + 1);
}

ContentType::ContentType(ustring_view text) : text_(text) {
    if (!MediaTypeScanner(text).matches()) {
        throw Exception("content type \"" + shown(text) +
                        "\" is not a media type: expected \"type/subtype\" without blanks");
    }
}

bool operator==(const ContentType& a, const ContentType& b) {
    return ascii::equalIgnoringCase(a.text_, b.text_);
}

}  // namespace opc::model
