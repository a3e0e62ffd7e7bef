#include "platform/opc/HostProperties.hpp"

#include <opc/XercesHelper.hpp>

#include <fl/i18n.hpp>

#include "platform/opc/xml/XmlReader.hpp"
#include "platform/opc/xml/XmlWriter.hpp"

#include <set>
#include <utility>

namespace opc::qzservices {

using fl::i18n::utf8_to_ustring_strict;
using foundation::release_info::ReleaseInfo;

namespace {

constexpr std::string_view kNamespace = "http://schemas.quorvane.com/package/2026/hostProperties";
constexpr std::string_view kRoot = "hostProperties";
constexpr std::string_view kFriendlyName = "contentTypeFriendlyName";
constexpr std::string_view kRelease = "release";
constexpr std::string_view kReleaseInfo = "releaseInfo";
constexpr std::string_view kLegacy = "legacy";

}  // namespace

class HostProperties::Reader final : public xml::Handler {
public:
    explicit Reader(CoreProperties& properties) : properties_(&properties) {}

    void start(const xml::StartTag& tag) override {
        const auto& name = tag.name();
        if (++depth_ == 1 && name != xml::Name{kNamespace, kRoot}) {
            throw xml::Refusal("the root is \"" + std::string(name.local) + "\"; expected " +
                               std::string(kRoot) + " of " + std::string(kNamespace));
        }
        if (depth_ != 2) return;
        property_ = name.nameSpace == kNamespace ? name.local : "";
        legacy_ = tag.find(kLegacy) == "true";
        text_.clear();
        if (!property_.empty() && !seen_.insert(property_).second) {
            throw xml::Refusal("a second " + property_);
        }
    }
    void end() override {
        if (--depth_ == 1) store();
    }
    void text(std::string_view characters) override {
        if (depth_ == 2) text_ += characters;
    }

private:
    void store() const {
        if (property_ == kFriendlyName) {
            properties_->friendlyName_ = utf8_to_ustring_strict(text_);
        } else if (property_ == kRelease) {
            properties_->release_ = utf8_to_ustring_strict(text_);
        } else if (property_ == kReleaseInfo) {
            properties_->releaseInfo_ = ReleaseInfo{utf8_to_ustring_strict(text_), legacy_};
        }
    }

    CoreProperties* properties_;
    int depth_ = 0;
    std::string property_;
    std::string text_;
    bool legacy_ = false;
    std::set<std::string> seen_;
};

bool HostProperties::any(const CoreProperties& properties) {
    return properties.friendlyName_ || properties.release_ || properties.releaseInfo_;
}

void HostProperties::parse(std::string_view document, const std::string& where,
                           CoreProperties& properties) {
    Reader reader(properties);
    xml::read(document, where, reader);
}

std::string HostProperties::toXml(const CoreProperties& properties) {
    xml::XmlWriter writer;
    writer.start(kRoot);
    writer.attribute("xmlns", kNamespace);
    const auto write = [&](std::string_view name, const ustring& text, bool legacy) {
        model::requireXmlText(text, utf8_to_ustring_strict(name));
        writer.start(name);
        if (legacy) writer.attribute(kLegacy, "true");
        writer.text(fl::i18n::ustring_to_utf8(text));
        writer.end(name);
    };
    if (properties.friendlyName_) write(kFriendlyName, *properties.friendlyName_, false);
    if (properties.release_) write(kRelease, *properties.release_, false);
    if (const auto& info = properties.releaseInfo_) {
        write(kReleaseInfo, info->release, info->legacy);
    }
    writer.end(kRoot);
    return std::move(writer).take();
}

}  // namespace opc::qzservices
