#include "platform/opc/src/package/TableHandler.hpp"

#include <opc/Exception.hpp>

namespace opc::model {

void TableHandler::read(std::string_view document, const std::string& where) {
    if (faults_ == nullptr) return xml::read(document, where, *this);
    try {
        xml::read(document, "", *this);
    } catch (const Exception& fault) {
        constexpr std::string_view kNoPlace = ": ";  // after the empty name of the document
        faults_->push_back(std::string(fault.what()).substr(kNoPlace.size()));
    }
}

void TableHandler::start(const xml::StartTag& tag) {
    try {
        startElement(tag);
    } catch (const xml::Refusal& refusal) {
        if (faults_ == nullptr) throw;
        addFault(refusal);
    }
}

void TableHandler::text(std::string_view characters) {
    if (xml::isBlank(characters)) return;
    const xml::Refusal refusal("unexpected text; remove it");
    if (faults_ == nullptr) throw refusal;
    addFault(refusal);
}

void TableHandler::addFault(const xml::Refusal& refusal) {
    // The same fault may come again at once: text comes in pieces, and all children of a wrong root
    // are wrong in the same way.
    if (faults_->empty() || faults_->back() != refusal.what()) faults_->push_back(refusal.what());
}

}  // namespace opc::model
