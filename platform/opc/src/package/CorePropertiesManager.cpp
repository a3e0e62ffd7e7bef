#include <opc/CorePropertiesManager.hpp>

#include <foundation/Shown.hpp>
#include <foundation/ustring.hpp>

#include <opc/Exception.hpp>
#include <opc/HostProperties.hpp>
#include <opc/PackageNames.hpp>
#include <opc/PartName.hpp>
#include <opc/RelatedPart.hpp>
#include <opc/Relationship.hpp>
#include <opc/StandardProperties.hpp>

#include "platform/opc/src/xml/XmlReader.hpp"

#include <span>
#include <string>
#include <vector>

namespace opc::qzservices {

using foundation::shown;

using model::Package;

namespace {

std::vector<model::Relationship> relationshipsToCore(const Package& package) {
    auto found =
        package.getRelationshipsByType(model::PackageHelper::getCorePropertiesRelationshipType());
    if (found.size() > 1) {
        throw Exception(shown(package.path()) + ": " + shown(names::kRelationshipsPart) + ": " +
                        std::to_string(found.size()) +
                        " relationships lead to core properties; remove all but one");
    }
    return found;
}

// A part of another type could mean anything.
void requireCoreProperties(const Package& package, const model::Part& part) {
    const model::ContentType expected(StandardProperties::kContentType);
    if (part.getContentType() == expected) return;
    throw Exception(shown(package.path()) + ": " + shown(part.getName().toString()) +
                    ": is related as core properties, but has the content type \"" +
                    shown(part.getContentType().toString()) + "\"; expected \"" +
                    shown(expected.toString()) + "\"");
}

template <class Properties>
void readPart(const Package& package, const model::Part& part, CoreProperties& properties) {
    const auto bytes = readAll(part, xml::kMaxBytes);
    Properties::parse({reinterpret_cast<const char*>(bytes.data()), bytes.size()},
                      shown(package.path()) + ": " + shown(part.getName().toString()), properties);
}

// The new content of the part. Throws opc::Exception if it cannot be written or could not be read
// again.
template <class Properties>
std::string contentFor(const Package& package, const CoreProperties& properties) {
    try {
        auto content = Properties::toXml(properties);
        xml::check(content, "once written");
        return content;
    } catch (const Exception& fault) {
        throw Exception(shown(package.path()) + ": " +
                        shown(foundation::ustring_view(Properties::kPartName)) + ": " +
                        fault.what());
    }
}

template <class Properties>
void writePart(Package& package, const ustring& relationshipType, const std::string& content) {
    auto part = requireRelatedPart(package, relationshipType, Properties::kPartName,
                                   model::ContentType(Properties::kContentType));
    const auto stream = part.getOutputStream();
    stream->write(std::as_bytes(std::span(content)));
    stream->flush();
}

}  // namespace

CorePropertiesManager::CorePropertiesManager(model::Package& package, DeterministicMode)
    : package_(&package) {}

CoreProperties CorePropertiesManager::getCoreProperties() const {
    CoreProperties properties;
    for (const auto& relationship : relationshipsToCore(*package_)) {
        if (!package_->hasTarget(relationship)) continue;
        const auto part = package_->getTarget(relationship);
        requireCoreProperties(*package_, part);
        readPart<StandardProperties>(*package_, part, properties);
    }
    const auto toHost = package_->getRelationshipsByType(HostProperties::kRelationshipType);
    for (const auto& relationship : toHost) {
        if (!package_->hasTarget(relationship)) continue;
        readPart<HostProperties>(*package_, package_->getTarget(relationship), properties);
        break;  // setCoreProperties() replaces this one
    }
    return properties;
}

void CorePropertiesManager::setCoreProperties(const CoreProperties& properties) {
    // What may be refused because of the properties comes before the first change.
    relationshipsToCore(*package_);
    const auto standard = contentFor<StandardProperties>(*package_, properties);
    const auto host = contentFor<HostProperties>(*package_, properties);
    const auto toHost = package_->getRelationshipsByType(HostProperties::kRelationshipType);
    writePart<StandardProperties>(
        *package_, model::PackageHelper::getCorePropertiesRelationshipType(), standard);
    if (HostProperties::any(properties) || !toHost.empty()) {
        writePart<HostProperties>(*package_, HostProperties::kRelationshipType, host);
    }
}

}  // namespace opc::qzservices
