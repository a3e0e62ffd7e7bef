#include <opc/PackageTables.hpp>

#include "platform/opc/src/package/ContentTypes.hpp"
#include "platform/opc/src/package/RelationshipsPart.hpp"
#include "platform/opc/src/xml/XmlReader.hpp"

namespace opc::model {

namespace {

// Faults are told without it.
constexpr const char* kNowhere = "";

class ElementCollector final : public xml::Handler {
public:
    void start(const xml::StartTag& tag) override {
        open_.push_back(elements_.size());
        XmlElement& element = elements_.emplace_back();
        element.depth = open_.size();
        element.name = tag.name().local;
        for (const xml::Attribute& attribute : tag.attributes()) {
            if (!attribute.name.nameSpace.empty()) continue;
            element.attributes.emplace_back(attribute.name.local, attribute.value);
        }
    }
    void end() override { open_.pop_back(); }
    void text(std::string_view characters) override {
        if (!open_.empty()) elements_[open_.back()].text += characters;
    }

    std::vector<XmlElement> take() { return std::move(elements_); }

private:
    std::vector<XmlElement> elements_;
    std::vector<std::size_t> open_;
};

}  // namespace

ContentTypesTable::ContentTypesTable(std::string_view document)
    : types_(std::make_shared<ContentTypes>(
          ContentTypes::parseLeniently(document, kNowhere, faults_))) {}

std::optional<ContentType> ContentTypesTable::find(const PartName& name) const {
    const ContentType* const found = types_->find(name);
    return found ? std::optional(*found) : std::nullopt;
}

std::vector<PartName> ContentTypesTable::overrides() const {
    return types_->overrides();
}

RelationshipsTable::RelationshipsTable(std::string_view document)
    : relationships(RelationshipsPart::parseLeniently(document, kNowhere, faults).all()) {}

const std::string* XmlElement::attribute(std::string_view attributeName) const {
    for (const auto& [key, value] : attributes) {
        if (key == attributeName) return &value;
    }
    return nullptr;
}

std::vector<XmlElement> readXmlElements(std::string_view document, const std::string& where) {
    ElementCollector collector;
    xml::read(document, where, collector);
    return collector.take();
}

}  // namespace opc::model
