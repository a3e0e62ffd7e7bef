#pragma once

#include "platform/opc/src/xml/XmlReader.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace opc::model {

// Reads one of a package's two tables. What breaks a rule refuses the document, or, where `faults` is
// not null, is added to it and passed over.
class TableHandler : public xml::Handler {
public:
    explicit TableHandler(std::vector<std::string>* faults) : faults_(faults) {}

    void start(const xml::StartTag& tag) final;
    void text(std::string_view characters) final;

private:
    virtual void startElement(const xml::StartTag& tag) = 0;
    void fault(const xml::Refusal& refusal);

    std::vector<std::string>* faults_;
};

// Reads as far as the document is well-formed, and adds where it is not to `faults`, too.
void readLeniently(std::string_view document, TableHandler& handler,
                   std::vector<std::string>& faults);

}  // namespace opc::model
