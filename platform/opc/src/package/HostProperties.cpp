#include <opc/HostProperties.hpp>

#include <opc/XercesHelper.hpp>

#include <fl/i18n.hpp>
#include <foundation/ReleaseInfo.hpp>
#include <foundation/ustring.hpp>

#include "platform/opc/src/xml/ElementCopier.hpp"
#include "platform/opc/src/xml/XmlReader.hpp"
#include "platform/opc/src/xml/XmlWriter.hpp"

#include <set>
#include <utility>

namespace opc::qzservices {

using fl::i18n::utf8_to_ustring_strict;
using foundation::release_info::ReleaseInfo;

namespace {

constexpr std::string_view kNamespace =
    foundation::kJoinedText<names::kHostSchemas, "/package/2026/hostProperties">.data();
constexpr std::string_view kRoot = "hostProperties";
constexpr std::string_view kFriendlyName = "contentTypeFriendlyName";
constexpr std::string_view kRelease = "release";
constexpr std::string_view kReleaseInfo = "releaseInfo";
constexpr std::string_view kLegacy = "legacy";

}  // namespace

HostProperties::Root HostProperties::usualRoot() {
    return {std::string(kRoot), {{"xmlns", std::string(kNamespace)}}};
}

// Reads the properties that this host knows, and keeps all other elements as they are.
class HostProperties::Reader final : public xml::Handler {
public:
    explicit Reader(CoreProperties& properties) : properties_(&properties) {}

    void start(const xml::StartTag& tag) override {
        const auto& name = tag.name();
        if (++depth_ == 1) return startRoot(tag);
        if (depth_ == 2 && isKnown(name)) return startProperty(tag);
        if (depth_ == 2 || others_.isInside()) others_.start(tag);
    }
    void end() override {
        --depth_;
        if (others_.isInside()) return others_.end();
        if (depth_ == 1) store();
        if (depth_ == 0) properties_->otherHostXml_ = std::move(others_).take();
    }
    void text(std::string_view characters) override {
        if (others_.isInside()) return others_.text(characters);
        if (depth_ == 2) text_ += characters;
    }

private:
    static bool isKnown(const xml::Name& name) {
        return name.nameSpace == kNamespace &&
               (name.local == kFriendlyName || name.local == kRelease ||
                name.local == kReleaseInfo);
    }
    void startRoot(const xml::StartTag& tag) const {
        if (tag.name() != xml::Name{kNamespace, kRoot}) {
            throw xml::Refusal("the root is \"" + std::string(tag.name().local) + "\"; expected " +
                               std::string(kRoot) + " of " + std::string(kNamespace));
        }
        Root root{xml::qualifiedName(tag), xml::qualifiedAttributes(tag)};
        if (root != usualRoot()) properties_->hostRoot_ = std::move(root);
    }
    void startProperty(const xml::StartTag& tag) {
        property_ = tag.name().local;
        legacy_ = tag.find(kLegacy) == "true";
        text_.clear();
        if (!seen_.insert(property_).second)
            throw xml::Refusal("a second " + property_ + "; remove one of them");
    }
    void store() const {
        if (property_ == kFriendlyName) {
            properties_->friendlyName_ = utf8_to_ustring_strict(text_);
        } else if (property_ == kRelease) {
            properties_->release_ = utf8_to_ustring_strict(text_);
        } else {
            properties_->releaseInfo_ = ReleaseInfo{utf8_to_ustring_strict(text_), legacy_};
        }
    }

    CoreProperties* properties_;
    int depth_ = 0;
    std::string property_;
    std::string text_;
    bool legacy_ = false;
    std::set<std::string> seen_;
    xml::ElementCopier others_;
};

bool HostProperties::any(const CoreProperties& properties) {
    return properties.friendlyName_ || properties.release_ || properties.releaseInfo_ ||
           !properties.otherHostXml_.empty();
}

void HostProperties::parse(std::string_view document, const std::string& where,
                           CoreProperties& properties) {
    Reader reader(properties);
    xml::read(document, where, reader);
}

std::string HostProperties::toXml(const CoreProperties& properties) {
    const Root root = properties.hostRoot_.name.empty() ? usualRoot() : properties.hostRoot_;
    // The root's prefix with its colon, or empty. The properties have the same namespace.
    const auto prefix = root.name.substr(0, root.name.find(':') + 1);
    xml::XmlWriter writer;
    writer.start(root.name);
    for (const auto& [name, value] : root.attributes)
        writer.attribute(name, value);
    const auto write = [&](std::string_view name, const ustring& text, bool legacy) {
        model::requireXmlText(text, utf8_to_ustring_strict(name));
        const auto element = prefix + std::string(name);
        writer.start(element);
        if (legacy) writer.attribute(kLegacy, "true");
        writer.text(fl::i18n::ustring_to_utf8(text));
        writer.end(element);
    };
    if (properties.friendlyName_) write(kFriendlyName, *properties.friendlyName_, false);
    if (properties.release_) write(kRelease, *properties.release_, false);
    if (const auto& info = properties.releaseInfo_) {
        write(kReleaseInfo, info->release, info->legacy);
    }
    writer.elements(properties.otherHostXml_);
    writer.end(root.name);
    return std::move(writer).take();
}

}  // namespace opc::qzservices
