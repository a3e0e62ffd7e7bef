#include <appserialization/Functions.hpp>
#include <appserialization/ustring.hpp>
#include <fl/i18n.hpp>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "textapp/AppendixScanner.hpp"
#include "textapp/PatternScanner.hpp"

// The lookups are made in UTF-8, the encoding of the file.

namespace appserialization {

namespace {

using namespace textapp;
using fl::i18n::ustring_to_utf8;
using fl::i18n::utf8_to_ustring;

void assignUnescaped(ustring& value, std::optional<std::string_view> found) {
    if (found) value = utf8_to_ustring(unescapedXMLEntities(*found));
}

}  // namespace

ustring getKAppAppendixSection(const ustring& text, const ustring& sectionName) {
    const std::string bytes = ustring_to_utf8(text);
    const std::string name = ustring_to_utf8(sectionName);
    const auto body =
        isPattern(name) ? findSectionByPattern(bytes, name) : findSection(bytes, name);
    return utf8_to_ustring(body.value_or(""));
}

void readXMLElement(const ustring& text, const ustring& elementName, ustring& value) {
    if (text.empty()) return;
    const std::string bytes = ustring_to_utf8(text);
    const std::string name = ustring_to_utf8(elementName);
    assignUnescaped(value,
                    isPattern(name) ? findElementByPattern(bytes, name) : findElement(bytes, name));
}

void readXMLElements(const ustring& text, const ustring& elementName,
                     std::vector<ustring>& values) {
    if (text.empty()) return;
    const std::string bytes = ustring_to_utf8(text);
    const std::string name = ustring_to_utf8(elementName);
    std::vector<ustring> items;
    const auto add = [&](std::string_view item) {
        // Items are not unescaped, because the caller has unescaped the list that holds them. A
        // second pass would turn "&amp;lt;" into "<".
        trim(items.emplace_back(utf8_to_ustring(item)));
    };
    if (isPattern(name)) {
        std::ranges::for_each(findElementsByPattern(bytes, name), add);
    } else {
        std::string_view rest = bytes;
        while (const auto item = takeElement(rest, name))
            add(*item);
    }
    values.insert(values.end(), std::make_move_iterator(items.begin()),
                  std::make_move_iterator(items.end()));
}

void readXMLElementAttribute(const ustring& text, const ustring& elementName,
                             const ustring& attributeName, ustring& value) {
    if (text.empty()) return;
    const std::string bytes = ustring_to_utf8(text);
    const std::string element = ustring_to_utf8(elementName);
    const std::string attribute = ustring_to_utf8(attributeName);
    assignUnescaped(value, isPattern(element) || isPattern(attribute)
                               ? findAttributeByPattern(bytes, element, attribute)
                               : findAttribute(bytes, element, attribute));
}

}  // namespace appserialization
