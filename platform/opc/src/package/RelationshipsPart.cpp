#include "platform/opc/src/package/RelationshipsPart.hpp"

#include <opc/Exception.hpp>
#include <opc/PackageNames.hpp>
#include <opc/XercesHelper.hpp>

#include <fl/i18n.hpp>
#include <foundation/JoinedText.hpp>
#include <foundation/Shown.hpp>

#include <xercesc/util/XMLChar.hpp>

#include "platform/opc/src/package/TableHandler.hpp"
#include "platform/opc/src/xml/XmlReader.hpp"
#include "platform/opc/src/xml/XmlWriter.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace opc::model {

using foundation::shown;

using fl::i18n::ustring_to_utf8;
using fl::i18n::utf8_to_ustring_strict;

namespace {

constexpr std::string_view kNamespace =
    foundation::kJoinedText<names::kPackageSchemas, "/relationships">.data();
constexpr std::string_view kAttributes[] = {"Id", "Type", "Target", "TargetMode"};

bool isXmlName(const ustring& text) {
    return xercesc::XMLChar1_0::isValidNCName(text.data(), text.size());
}

}  // namespace

// Reads the element Relationships with Relationship elements in it. Refuses anything else, because
// a save would lose it.
class RelationshipsHandler final : public TableHandler {
public:
    RelationshipsHandler(RelationshipsPart& part, std::vector<std::string>* faults)
        : TableHandler(faults), part_(&part) {}

private:
    void startElement(const xml::StartTag& tag) override {
        const char* const expected = ++depth_ == 1 ? "Relationships" : "Relationship";
        if (depth_ > 2 || tag.name() != xml::Name{kNamespace, expected}) {
            throw xml::Refusal("unexpected element \"" + shown(tag.name().local) +
                               "\"; expected Relationships with Relationship elements of " +
                               std::string(kNamespace));
        }
        if (depth_ == 2) return add(tag);
        xml::refuseRootAttributes(tag);
    }
    void end() override { --depth_; }

    static void refuseOtherAttributes(const xml::StartTag& tag) {
        for (const auto& attribute : tag.attributes()) {
            const auto known = std::ranges::find(kAttributes, attribute.name.local);
            if (!attribute.name.nameSpace.empty() || known == std::end(kAttributes))
                xml::refuseAttribute(attribute.name);
        }
    }

    static ustring required(const xml::StartTag& tag, std::string_view attribute) {
        const auto value = tag.find(attribute);
        if (!value)
            throw xml::Refusal("a relationship has no " + std::string(attribute) + "; add it");
        return utf8_to_ustring_strict(*value);
    }

    static TargetMode mode(const xml::StartTag& tag) {
        const auto text = tag.find("TargetMode").value_or("Internal");
        if (text == "Internal") return TargetMode::Internal;
        if (text == "External") return TargetMode::External;
        throw xml::Refusal("TargetMode \"" + shown(text) + "\" is neither Internal nor External");
    }

    void add(const xml::StartTag& tag) {
        refuseOtherAttributes(tag);
        const auto id = required(tag, "Id");
        if (!isXmlName(id)) {
            throw xml::Refusal("relationship id \"" + shown(id) +
                               "\" is not an XML name; expected one such as \"rId1\"");
        }
        if (part_->places_.contains(id)) {
            throw xml::Refusal("a second relationship with id \"" + shown(id) +
                               "\"; give it another one");
        }
        auto type = required(tag, "Type");
        if (type.empty()) throw xml::Refusal("Type is empty; expected a URI");
        part_->add(Relationship(id, std::move(type), URI(required(tag, "Target")), mode(tag)));
    }

    RelationshipsPart* part_;
    int depth_ = 0;
};

RelationshipsPart RelationshipsPart::parse(std::string_view document, const std::string& where,
                                           std::vector<std::string>* faults) {
    RelationshipsPart part;
    RelationshipsHandler(part, faults).read(document, where);
    return part;
}

Relationship RelationshipsPart::create(const ustring& type, const URI& target, const ustring& id,
                                       TargetMode mode) {
    if (!id.empty() && !isXmlName(id)) {
        throw Exception("relationship id \"" + shown(id) +
                        "\" is not an XML name; leave it empty to get a free one");
    }
    if (places_.contains(id)) {
        throw Exception("relationship id \"" + shown(id) +
                        "\" is taken; leave it empty to get a free one");
    }
    if (type.empty()) throw Exception("the type of a relationship must not be empty");
    requireXmlText(type, u"relationship type");
    requireXmlText(target.toString(), u"relationship target");
    Relationship created(id.empty() ? freeId() : id, type, target, mode);
    add(created);
    return created;
}

bool RelationshipsPart::remove(const ustring& id) {
    const auto place = places_.find(id);
    if (place == places_.end()) return false;
    all_.erase(place->second);
    places_.erase(place);
    return true;
}

std::vector<Relationship> RelationshipsPart::all() const {
    std::vector<Relationship> found;
    found.reserve(all_.size());
    for (const auto& [place, relationship] : all_)
        found.push_back(relationship);
    return found;
}

std::vector<Relationship> RelationshipsPart::ofType(const ustring& type) const {
    std::vector<Relationship> found;
    for (const auto& [place, relationship] : all_) {
        if (relationship.getType() == type) found.push_back(relationship);
    }
    return found;
}

bool operator==(const RelationshipsPart& a, const RelationshipsPart& b) {
    return std::ranges::equal(a.all_, b.all_, [](const auto& one, const auto& other) {
        return one.second == other.second;
    });
}

std::string RelationshipsPart::toXml() const {
    xml::XmlWriter writer;
    writer.start("Relationships");
    writer.attribute("xmlns", kNamespace);
    for (const auto& [place, relationship] : all_) {
        writer.start("Relationship");
        writer.attribute("Id", ustring_to_utf8(relationship.getID()));
        writer.attribute("Type", ustring_to_utf8(relationship.getType()));
        writer.attribute("Target", ustring_to_utf8(relationship.getTargetURI().toString()));
        if (relationship.getTargetMode() == TargetMode::External) {
            writer.attribute("TargetMode", "External");
        }
        writer.end("Relationship");
    }
    writer.end("Relationships");
    return std::move(writer).take();
}

void RelationshipsPart::add(Relationship relationship) {
    const auto [id, isNew] = places_.emplace(relationship.getID(), nextPlace_);
    try {
        all_.emplace_hint(all_.end(), nextPlace_, std::move(relationship));
    } catch (...) {
        if (isNew) places_.erase(id);
        throw;
    }
    ++nextPlace_;
}

ustring RelationshipsPart::freeId() {
    ustring id;
    do {
        id = u"rId";
        for (const char digit : std::to_string(++lastNumber_))
            id += char16_t(digit);
    } while (places_.contains(id));
    return id;
}

}  // namespace opc::model
