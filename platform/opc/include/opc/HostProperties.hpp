#pragma once

#include <foundation/Export.hpp>
#include <opc/CoreProperties.hpp>
#include <opc/PackageNames.hpp>

#include <string>
#include <string_view>

namespace opc::qzservices {

// The host's own part beside the standard's core properties: friendly name of the content type,
// release, and release info.
class HostProperties {
public:
    static constexpr const char16_t* kPartName = u"/docProps/korval.xml";
    static constexpr const char16_t* kContentType =
        u"application/vnd.quorvane.korval.hostProperties+xml";
    static constexpr const char16_t* kRelationshipType =
        foundation::kJoinedText<names::kHostSchemas,
                                u"/package/2026/relationships/hostProperties">.data();

    // Whether `properties` has any that stand in this part.
    static bool any(const CoreProperties& properties);

    // Adds what the part says to `properties`; elements that a later host may add beside
    // those that are known are kept there, and so is the root; what is inside of the known ones, but
    // for text, is not.
    // Throws opc::Exception that starts with `where` for a part that cannot be understood.
    PLATFORM_API static void parse(std::string_view document, const std::string& where,
                                   CoreProperties& properties);

    // Throws opc::Exception, naming property and position, for text that XML cannot hold.
    PLATFORM_API static std::string toXml(const CoreProperties& properties);

private:
    class Reader;
    using Root = CoreProperties::Root;
    static Root usualRoot();
};

}  // namespace opc::qzservices
