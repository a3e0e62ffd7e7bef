#pragma once

#include <foundation/Export.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace opc::model {

// An element of an XML part, UTF-8. Attributes without a namespace only.
struct PLATFORM_API XmlElement {
    std::size_t depth = 0;  // the root's is 1
    std::string name;       // without its prefix
    std::vector<std::pair<std::string, std::string>> attributes;
    std::string text;  // its own, without that of the elements in it

    // Null when there is none.
    const std::string* attribute(std::string_view attributeName) const;
};

// The elements of a document, in its order. Throws opc::Exception that starts with `where` for what is
// not well-formed or beyond the bounds of XML parts.
PLATFORM_API std::vector<XmlElement> readXmlElements(std::string_view document,
                                                     const std::string& where);

}  // namespace opc::model
