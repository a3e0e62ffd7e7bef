#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/opc/src/xml/XmlReader.hpp"
#include "platform/opc/src/xml/XmlWriter.hpp"

namespace opc::xml {

// Names with their prefixes, as they stand in XML.
std::string qualified(std::string_view prefix, std::string_view local);
// Of the attribute that declares a namespace.
std::string declarationName(std::string_view prefix);
std::string qualifiedName(const StartTag& tag);
// Those, and the values; the declarations of namespaces come first.
std::vector<std::pair<std::string, std::string>> qualifiedAttributes(const StartTag& tag);

// Writes elements again as they are read, one after the other, so that they mean the same in any
// document where the namespaces around them are declared as in the one they come from. Comments and
// processing instructions are left out.
class ElementCopier {
public:
    // To be called for everything that stands in the elements. Both throw Refusal when the copy, in
    // which more is escaped, becomes larger than a document may be.
    void start(const StartTag& tag);
    void text(std::string_view characters);
    void end();

    // Whether an element has not ended yet.
    bool isInside() const noexcept { return !open_.empty(); }
    // UTF-8.
    std::string take() && { return std::move(writer_).take(); }

private:
    void requireRoom() const;

    XmlWriter writer_ = XmlWriter::fragment();
    std::vector<std::string> open_;  // names, innermost last
};

}  // namespace opc::xml
