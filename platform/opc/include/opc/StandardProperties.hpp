#pragma once

#include <foundation/Export.hpp>
#include <opc/CoreProperties.hpp>

#include <foundation/ustring.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace opc::xml {
class XmlWriter;
}

namespace opc::qzservices {

// The part that the packaging standard defines for core properties. It holds what the standard's
// schema has and nothing else, so that any reader of packages accepts it.
class StandardProperties {
public:
    static constexpr const char16_t* kPartName = u"/docProps/core.xml";
    static constexpr const char16_t* kContentType =
        u"application/vnd.openxmlformats-package.core-properties+xml";

    // Adds what the part says to `properties`. Throws opc::Exception that starts with `where` for a
    // part that breaks a rule of core properties.
    PLATFORM_API static void parse(std::string_view document, const std::string& where,
                                   CoreProperties& properties);

    // Throws opc::Exception, naming property and position, for text that XML cannot hold.
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
