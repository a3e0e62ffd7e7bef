#include <appserialization/Functions.hpp>
#include <appserialization/ustring.hpp>

#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include "textapp/AppendixScanner.hpp"
#include "textapp/PatternScanner.hpp"
#include "textapp/TextSearch.hpp"

namespace appserialization {

namespace {

using namespace textapp;

std::optional<ustring> toString(const std::optional<ustring_view>& view) {
    if (!view) return std::nullopt;
    return ustring(*view);
}

// Callers may pass the same string as the text to search and as `value`, so `value` changes last.
void assignUnescaped(ustring& value, std::optional<ustring> found) {
    if (!found) return;
    unescapeXMLEntities(*found);
    value = std::move(*found);
}

std::vector<ustring> findElements(const ustring& text, const ustring& elementName) {
    std::vector<ustring> texts;
    const ElementFinder finder(elementName);
    for (auto element = finder.find(text); element; element = finder.find(text, element->end)) {
        texts.emplace_back(element->text);
    }
    return texts;
}

}  // namespace

ustring getKAppAppendixSection(const ustring& text, const ustring& sectionName) {
    if (isPattern(sectionName)) {
        return findSectionByPattern(text, sectionName).value_or(ustring());
    }
    requireValidUtf16(text);
    requireValidUtf16(sectionName);
    return ustring(findSection(text, sectionName).value_or(ustring_view()));
}

void readXMLElement(const ustring& text, const ustring& elementName, ustring& value) {
    if (text.empty()) return;
    if (isPattern(elementName)) {
        return assignUnescaped(value, findElementByPattern(text, elementName));
    }
    requireValidUtf16(text);
    requireValidUtf16(elementName);
    assignUnescaped(value, toString(findElement(text, elementName)));
}

void readXMLElements(const ustring& text, const ustring& elementName,
                     std::vector<ustring>& values) {
    if (text.empty()) return;
    requireValidUtf16(text);
    requireValidUtf16(elementName);
    auto found = isPattern(elementName) ? findElementsByPattern(text, elementName)
                                        : findElements(text, elementName);
    for (ustring& item : found) {
        // Items are not unescaped, because the caller has unescaped the list that holds them. A
        // second pass would turn "&amp;lt;" into "<".
        trim(item);
    }
    values.insert(values.end(), std::make_move_iterator(found.begin()),
                  std::make_move_iterator(found.end()));
}

void readXMLElementAttribute(const ustring& text, const ustring& elementName,
                             const ustring& attributeName, ustring& value) {
    if (text.empty()) return;
    if (isPattern(elementName) || isPattern(attributeName)) {
        return assignUnescaped(value, findAttributeByPattern(text, elementName, attributeName));
    }
    requireValidUtf16(text);
    requireValidUtf16(elementName);
    requireValidUtf16(attributeName);
    assignUnescaped(value, toString(findAttribute(text, elementName, attributeName)));
}

}  // namespace appserialization
