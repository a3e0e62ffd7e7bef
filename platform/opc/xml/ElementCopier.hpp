#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/opc/xml/XmlReader.hpp"
#include "platform/opc/xml/XmlWriter.hpp"

namespace opc::xml {

// Writes elements again as they are read, one after the other, so that they mean the same in any
// document: with all their namespaces, of which also a value may use a prefix. Comments and processing
// instructions are left out.
class ElementCopier {
public:
    // To be called for everything that stands in the elements.
    void start(const StartTag& tag);
    void end();
    void text(std::string_view characters) { writer_.text(characters); }

    // Whether an element has not ended yet.
    bool isInside() const noexcept { return !open_.empty(); }
    // UTF-8.
    std::string take() && { return std::move(writer_).take(); }

private:
    struct Open {
        std::string name;
        NamespaceMap namespaces;
    };
    XmlWriter writer_ = XmlWriter::fragment();
    std::vector<Open> open_;
};

}  // namespace opc::xml
