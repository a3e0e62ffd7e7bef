#include "platform/opc/src/package/TableHandler.hpp"

#include <opc/Exception.hpp>

#include <algorithm>

namespace opc::model {

namespace {

// In front of messages about a document that is called "": faults are told without it.
constexpr std::string_view kNoPlace = ": ";

}  // namespace

void TableHandler::start(const xml::StartTag& tag) {
    try {
        startElement(tag);
    } catch (const xml::Refusal& refusal) {
        if (faults_ == nullptr) throw;
        fault(refusal);
    }
}

void TableHandler::text(std::string_view characters) {
    if (xml::isBlank(characters)) return;
    const xml::Refusal refusal("unexpected text; remove it");
    if (faults_ == nullptr) throw refusal;
    fault(refusal);
}

void TableHandler::fault(const xml::Refusal& refusal) {
    // Text comes in pieces, and all children of a wrong root are wrong in the same way.
    if (faults_->empty() || faults_->back() != refusal.what()) faults_->push_back(refusal.what());
}

void readLeniently(std::string_view document, TableHandler& handler,
                   std::vector<std::string>& faults) {
    try {
        xml::read(document, "", handler);
    } catch (const Exception& fault) {
        faults.push_back(std::string(fault.what()).substr(kNoPlace.size()));
    }
}

}  // namespace opc::model
