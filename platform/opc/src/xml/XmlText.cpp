#include <opc/Exception.hpp>
#include <opc/XercesHelper.hpp>

#include <foundation/Shown.hpp>
#include <foundation/ustring.hpp>

#include <cstdio>
#include <string>

namespace opc::model {

using foundation::shown;

namespace {

bool isHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}

bool isLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

bool isXmlUnit(char16_t unit) {
    return (unit >= 0x20 && unit < 0xFFFE) || unit == u'\t' || unit == u'\n' || unit == u'\r';
}

// Index of the first code unit that XML cannot hold, or npos.
std::size_t findUnwritable(foundation::ustring_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isHighSurrogate(text[i]) && i + 1 < text.size() && isLowSurrogate(text[i + 1])) {
            ++i;
        } else if (!isXmlUnit(text[i]) || isHighSurrogate(text[i]) || isLowSurrogate(text[i])) {
            return i;
        }
    }
    return ustring::npos;
}

}  // namespace

void requireXmlText(const ustring& text, const ustring& field) {
    const auto position = findUnwritable(text);
    if (position == ustring::npos) return;
    const char16_t unit = text[position];
    const bool surrogate = isHighSurrogate(unit) || isLowSurrogate(unit);
    char code[8];
    std::snprintf(code, sizeof code, "%04X", unsigned(unit));
    throw Exception(shown(field) + ": " +
                    (surrogate ? "the unpaired surrogate U+" : "the character U+") + code +
                    " at index " + std::to_string(position) + " is not allowed in XML; remove it");
}

}  // namespace opc::model
