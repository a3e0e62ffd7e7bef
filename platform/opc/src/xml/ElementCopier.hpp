#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/opc/src/xml/XmlReader.hpp"
#include "platform/opc/src/xml/XmlWriter.hpp"

namespace opc::xml {

// The name "prefix:local" as it is in XML, or "local" if the prefix is empty.
std::string qualified(std::string_view prefix, std::string_view local);
// The name of the attribute that declares a prefix or, if it is empty, the default namespace.
std::string declarationName(std::string_view prefix);
// The name of the element as it is in XML.
std::string qualifiedName(const StartTag& tag);
// Names and values of the namespace declarations, then those of the attributes.
std::vector<std::pair<std::string, std::string>> qualifiedAttributes(const StartTag& tag);

// Writes elements again as they are read, one after another, without comments and processing
// instructions. The copies mean the same in any document that declares the namespaces around them
// as the original does. A handler calls start(), text() and end() for everything that is in such
// elements.
class ElementCopier {
public:
    // Throw Refusal if the copy becomes larger than a document may be. It can be larger than the
    // original, because more is escaped.
    void start(const StartTag& tag);
    void text(std::string_view characters);
    void end();

    // Whether an element has been started that has not ended.
    bool isInside() const noexcept { return !open_.empty(); }
    // The copies as XML, in UTF-8.
    std::string take() && { return std::move(writer_).take(); }

private:
    void requireRoom() const;

    XmlWriter writer_ = XmlWriter::fragment();
    std::vector<std::string> open_;  // names of the elements that have not ended, innermost last
};

}  // namespace opc::xml
