#include <opc/XmlElements.hpp>

#include "platform/opc/src/xml/XmlReader.hpp"

namespace opc::model {

namespace {

// Collects the elements of a document.
class ElementCollector final : public xml::Handler {
public:
    void start(const xml::StartTag& tag) override {
        open_.push_back(elements_.size());
        XmlElement& element = elements_.emplace_back();
        element.depth = open_.size();
        element.name = tag.name().local;
        for (const xml::Attribute& attribute : tag.attributes()) {
            std::string name(attribute.prefix);
            if (!name.empty()) name += ':';
            element.attributes.emplace_back(name += attribute.name.local, attribute.value);
        }
    }
    void end() override { open_.pop_back(); }
    void text(std::string_view characters) override {
        if (!open_.empty()) elements_[open_.back()].text += characters;
    }

    std::vector<XmlElement> take() { return std::move(elements_); }

private:
    std::vector<XmlElement> elements_;
    std::vector<std::size_t> open_;  // indexes of those that have not ended, innermost last
};

}  // namespace

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
