#include <appserialization/Functions.hpp>

#include <appserialization/ustring.hpp>
#include <fl/i18n.hpp>

#include <algorithm>
#include <locale>
#include <string>

namespace appserialization {

void trim(ustring& text) {
    const std::locale global;
    const auto& characters = std::use_facet<std::ctype<char>>(global);
    const auto isSpace = [&](char byte) { return characters.is(std::ctype_base::space, byte); };

    // White space is a property of bytes here. In the classic locale no byte of a character beyond
    // ASCII is one, so characters stay whole.
    const std::string bytes = fl::i18n::ustring_to_utf8(text);
    const auto end = std::find_if_not(bytes.rbegin(), bytes.rend(), isSpace).base();
    const auto begin = std::find_if_not(bytes.begin(), end, isSpace);
    text = fl::i18n::utf8_to_ustring({begin, end});
}

}  // namespace appserialization
