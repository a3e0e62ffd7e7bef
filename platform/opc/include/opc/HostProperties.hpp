#pragma once

#include <foundation/Export.hpp>
#include <foundation/JoinedText.hpp>
#include <opc/CoreProperties.hpp>
#include <opc/PackageNames.hpp>

#include <string>
#include <string_view>

namespace opc::qzservices {

// The part with the properties that the packaging standard's core properties have no place for: the
// friendly name of the content type, the release, and the release info. Called by
// CorePropertiesManager; holds no state.
class HostProperties {
public:
    static constexpr const char16_t* kPartName = u"/docProps/korval.xml";
    static constexpr const char16_t* kContentType =
        u"application/vnd.quorvane.korval.hostProperties+xml";
    static constexpr const char16_t* kRelationshipType =
        foundation::kJoinedText<names::kHostSchemas,
                                u"/package/2026/relationships/hostProperties">.data();

    // Whether `properties` has any that this part holds, so that a package needs the part.
    static bool any(const CoreProperties& properties);

    // Adds the properties of the part to `properties`. Elements that this version does not know,
    // which a later host may write, are kept there for toXml(), and so is the root element. Of a
    // known element only the text is kept. Throws opc::Exception that starts with `where` (file and
    // part) if the XML is refused, the root is another one, or a known element occurs twice;
    // `properties` may then be half filled.
    PLATFORM_API static void parse(std::string_view document, const std::string& where,
                                   CoreProperties& properties);

    // The content of the part, as UTF-8. Throws opc::Exception that names the property and the
    // position of a character that XML cannot hold.
    PLATFORM_API static std::string toXml(const CoreProperties& properties);

private:
    class Reader;
    using Root = CoreProperties::Root;
    static Root usualRoot();
};

}  // namespace opc::qzservices
