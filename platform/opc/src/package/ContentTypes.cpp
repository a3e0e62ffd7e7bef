#include "platform/opc/src/package/ContentTypes.hpp"

#include <opc/Exception.hpp>

#include <fl/i18n.hpp>
#include <foundation/JoinedText.hpp>
#include <foundation/Shown.hpp>

#include <opc/PackageNames.hpp>

#include "platform/opc/src/Ascii.hpp"
#include "platform/opc/src/package/TableHandler.hpp"
#include "platform/opc/src/xml/XmlReader.hpp"
#include "platform/opc/src/xml/XmlWriter.hpp"

#include <algorithm>
#include <utility>

namespace opc::model {

using foundation::shown;

using fl::i18n::ustring_to_utf8;
using fl::i18n::utf8_to_ustring_strict;

namespace {

constexpr std::string_view kNamespace =
    foundation::kJoinedText<names::kPackageSchemas, "/content-types">.data();

// The form that equal extensions share.
std::string extensionKey(ustring_view extension) {
    return ustring_to_utf8(ascii::lowered(extension));
}

// That form of the extension of a part name; empty if the name has no extension.
std::string extensionKey(const PartName& name) {
    const auto& key = name.key();
    const auto dot = key.rfind('.');
    return dot == std::string::npos || dot < key.rfind('/') ? "" : key.substr(dot + 1);
}

std::string_view required(const xml::StartTag& tag, std::string_view attribute) {
    const auto value = tag.find(attribute);
    if (!value) {
        throw xml::Refusal(std::string(tag.name().local) + " has no attribute " +
                           std::string(attribute) + "; add it");
    }
    return *value;
}

}  // namespace

// Reads the element Types with Default and Override elements in it. Refuses anything else, because
// a save would lose it.
class ContentTypesHandler final : public TableHandler {
public:
    ContentTypesHandler(ContentTypes& types, std::vector<std::string>* faults)
        : TableHandler(faults), types_(&types) {}

private:
    void startElement(const xml::StartTag& tag) override {
        const auto& name = tag.name();
        if (++depth_ == 1) {
            if (name != xml::Name{kNamespace, "Types"}) refuseElement(name);
            xml::refuseRootAttributes(tag);
        } else if (depth_ == 2 && name == xml::Name{kNamespace, "Default"}) {
            addDefault(tag);
        } else if (depth_ == 2 && name == xml::Name{kNamespace, "Override"}) {
            addOverride(tag);
        } else {
            refuseElement(name);
        }
    }
    void end() override { --depth_; }

    [[noreturn]] static void refuseElement(const xml::Name& name) {
        throw xml::Refusal("unexpected element \"" + shown(name.local) +
                           "\"; expected Types with Default and Override elements of " +
                           std::string(kNamespace));
    }

    static void refuseOtherAttributes(const xml::StartTag& tag, std::string_view key) {
        for (const auto& attribute : tag.attributes()) {
            const auto& name = attribute.name;
            if (name != xml::Name{{}, key} && name != xml::Name{{}, "ContentType"})
                xml::refuseAttribute(name);
        }
    }

    // Makes a PartName or ContentType of the text. The exception of their constructors becomes a
    // Refusal, to which the place in the document is added.
    template <class Checked>
    static Checked checked(std::string_view text) {
        try {
            return Checked(ustring_view(utf8_to_ustring_strict(text)));
        } catch (const Exception& fault) {
            throw xml::Refusal(fault.what());
        }
    }

    void addDefault(const xml::StartTag& tag) {
        refuseOtherAttributes(tag, "Extension");
        const auto extension = required(tag, "Extension");
        if (extension.empty())
            throw xml::Refusal("Extension is empty; expected one such as \"xml\"");
        if (extension.find_first_of("./\\") != std::string_view::npos) {
            throw xml::Refusal("Extension \"" + shown(extension) +
                               "\" has a dot or slash; expected it without");
        }
        ustring key = utf8_to_ustring_strict(extension);
        auto index = extensionKey(key);
        if (!types_->add(types_->defaults_, std::move(index), {false, std::move(key), type(tag)})) {
            throw xml::Refusal("a second Default for extension \"" + shown(extension) +
                               "\"; remove one of them");
        }
    }

    void addOverride(const xml::StartTag& tag) {
        refuseOtherAttributes(tag, "PartName");
        const auto text = required(tag, "PartName");
        const auto name = checked<PartName>(text);
        if (!types_->add(types_->overrides_, name.key(), {true, name.toString(), type(tag)})) {
            throw xml::Refusal("a second Override for part \"" + shown(text) +
                               "\"; remove one of them");
        }
    }

    static ContentType type(const xml::StartTag& tag) {
        return checked<ContentType>(required(tag, "ContentType"));
    }

    ContentTypes* types_;
    int depth_ = 0;
};

ContentTypes ContentTypes::initial() {
    ContentTypes types;
    types.add(types.defaults_, "rels", {false, u"rels", ContentType(names::kRelationshipsType)});
    return types;
}

ContentTypes ContentTypes::parse(std::string_view document, const std::string& where,
                                 std::vector<std::string>* faults) {
    ContentTypes types;
    ContentTypesHandler(types, faults).read(document, where);
    return types;
}

const ContentType* ContentTypes::find(const PartName& name) const {
    if (const auto found = overrides_.find(name.key()); found != overrides_.end()) {
        return &entries_.at(found->second).type;
    }
    const auto found = defaults_.find(extensionKey(name));
    return found == defaults_.end() ? nullptr : &entries_.at(found->second).type;
}

void ContentTypes::set(const PartName& name, const ContentType& type) {
    const auto* current = find(name);
    if (current != nullptr && *current == type) return;
    // A new Default would be wrong: untyped items with the extension would become parts.
    Entry entry{true, name.toString(), type};
    if (const auto found = overrides_.find(name.key()); found != overrides_.end()) {
        entries_.at(found->second) = std::move(entry);
    } else {
        add(overrides_, name.key(), std::move(entry));
    }
}

void ContentTypes::removeOverride(const PartName& name) {
    const auto found = overrides_.find(name.key());
    if (found == overrides_.end()) return;
    entries_.erase(found->second);
    overrides_.erase(found);
}

std::vector<PartName> ContentTypes::overrides() const {
    std::vector<PartName> names;
    for (const auto& [number, entry] : entries_) {
        if (entry.isOverride) names.emplace_back(ustring_view(entry.key));
    }
    return names;
}

std::string ContentTypes::toXml() const {
    xml::XmlWriter writer;
    writer.start("Types");
    writer.attribute("xmlns", kNamespace);
    for (const auto& [number, entry] : entries_) {
        const char* const element = entry.isOverride ? "Override" : "Default";
        writer.start(element);
        writer.attribute(entry.isOverride ? "PartName" : "Extension", ustring_to_utf8(entry.key));
        writer.attribute("ContentType", ustring_to_utf8(entry.type.toString()));
        writer.end(element);
    }
    writer.end("Types");
    return std::move(writer).take();
}

bool operator==(const ContentTypes& a, const ContentTypes& b) {
    return std::equal(a.entries_.begin(), a.entries_.end(), b.entries_.begin(), b.entries_.end(),
                      [](const auto& x, const auto& y) {
                          return x.second.isOverride == y.second.isOverride &&
                                 x.second.key == y.second.key &&
                                 x.second.type.toString() == y.second.type.toString();
                      });
}

bool ContentTypes::add(Index& index, std::string key, Entry entry) {
    const auto [place, isNew] = index.emplace(std::move(key), next_);
    if (!isNew) return false;
    try {
        entries_.emplace_hint(entries_.end(), next_, std::move(entry));
    } catch (...) {
        index.erase(place);
        throw;
    }
    ++next_;
    return true;
}

}  // namespace opc::model
