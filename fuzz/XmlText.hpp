#pragma once

#include <cstddef>
#include <string>

// Text in XML, written down a second time for comparing.
namespace fuzz {

// Whether XML 1.0 has a character for all of `text`.
inline bool isXmlText(const std::u16string& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char16_t unit = text[i];
        if (unit >= 0xD800 && unit < 0xDC00) {
            if (++i == text.size() || text[i] < 0xDC00 || text[i] > 0xDFFF) return false;
        } else if (unit >= 0xDC00 && unit < 0xE000) {
            return false;
        } else if (unit >= 0xFFFE || (unit < 0x20 && unit != 9 && unit != 10 && unit != 13)) {
            return false;
        }
    }
    return true;
}

// As content or attribute value. All but letters and digits become references, so that nothing else
// that XML does to text gets in the way. What XML cannot hold makes a document that must be refused.
inline std::string xmlText(const std::u16string& text) {
    std::string xml;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t point = text[i];
        const bool isLead = point >= 0xD800 && point < 0xDC00 && i + 1 < text.size();
        if (isLead && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
            point = 0x10000 + ((point - 0xD800) << 10) + (text[++i] - 0xDC00);
        }
        const bool isPlain = (point >= '0' && point <= '9') || (point >= 'a' && point <= 'z');
        xml += isPlain ? std::string(1, char(point)) : "&#" + std::to_string(point) + ";";
    }
    return xml;
}

}  // namespace fuzz
