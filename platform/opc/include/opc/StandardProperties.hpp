#pragma once

#include <foundation/Export.hpp>
#include <opc/CoreProperties.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace opc::xml {
class XmlWriter;
}

namespace opc::qzservices {

// The part that the packaging standard defines for core properties. It holds only what the
// standard's schema has, so that any reader of packages accepts it. Called by
// CorePropertiesManager; holds no state.
class StandardProperties {
public:
    static constexpr const char16_t* kPartName = u"/docProps/core.xml";
    static constexpr const char16_t* kContentType =
        u"application/vnd.openxmlformats-package.core-properties+xml";

    // Adds the properties of the part to `properties`. Those without an accessor are kept there for
    // toXml(). Throws opc::Exception that starts with `where` (file and part) if the part breaks a
    // rule of core properties: an unknown element, an element that occurs twice, an attribute that
    // has no place there, or a malformed date. `properties` may then be half filled.
    PLATFORM_API static void parse(std::string_view document, const std::string& where,
                                   CoreProperties& properties);

    // The content of the part, as UTF-8. Throws opc::Exception that names the property and the
    // position of a character that XML cannot hold, or a modified time outside the years 0 to 9999.
    PLATFORM_API static std::string toXml(const CoreProperties& properties);

private:
    class Reader;
    struct Row;
    static std::optional<std::vector<CoreProperties::Piece>> piecesOf(
        const CoreProperties& properties, const Row& row);
    static void writeProperty(xml::XmlWriter& writer, const Row& row,
                              const std::vector<CoreProperties::Piece>& pieces);

    static const Row kRows[];
};

}  // namespace opc::qzservices
