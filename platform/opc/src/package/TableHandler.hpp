#pragma once

#include "platform/opc/src/xml/XmlReader.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace opc::model {

// Reads one of a package's two tables, the content types or the relationships, strictly or
// leniently. A derived class handles the elements and throws xml::Refusal for what breaks a rule.
// Used for one document.
class TableHandler : public xml::Handler {
public:
    // If `faults` is null, the first fault refuses the document. Otherwise each fault is added to
    // `faults`, and the element is passed over.
    explicit TableHandler(std::vector<std::string>* faults) : faults_(faults) {}

    // Reads the document. Throws opc::Exception that starts with `where` if it is refused. When
    // faults are collected, nothing is refused: a document that is not well-formed is read up to
    // that place, which becomes the last fault, without `where`.
    void read(std::string_view document, const std::string& where);

    void start(const xml::StartTag& tag) final;
    void text(std::string_view characters) final;

private:
    // Called for each start tag.
    virtual void startElement(const xml::StartTag& tag) = 0;
    void addFault(const xml::Refusal& refusal);

    std::vector<std::string>* faults_;
};

}  // namespace opc::model
