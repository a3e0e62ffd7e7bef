#pragma once

#include <foundation/Export.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace opc::model {

// An element of an XML part. All texts are UTF-8, with references resolved.
struct PLATFORM_API XmlElement {
    std::size_t depth = 0;  // the root's is 1
    std::string name;       // without its prefix
    // Names and values of the attributes. The name of one in a namespace has its prefix.
    std::vector<std::pair<std::string, std::string>> attributes;
    std::string text;  // its own character data, without that of the elements in it

    // The value of the attribute with this name, or null.
    const std::string* attribute(std::string_view attributeName) const;
};

// Returns the elements of an XML document in the order of their start tags, so that an element's
// children follow it with a greater depth. Takes linear time. Throws opc::Exception that starts
// with `where` (file and part) if the document is not well-formed, has a document type, or exceeds
// what an XML part may hold.
PLATFORM_API std::vector<XmlElement> readXmlElements(std::string_view document,
                                                     const std::string& where);

}  // namespace opc::model
