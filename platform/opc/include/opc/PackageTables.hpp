#pragma once

#include <foundation/Export.hpp>
#include <opc/Names.hpp>
#include <opc/Relationship.hpp>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The XML of a package read without a Package: for describing one that Package::open() refuses. What
// it would refuse is collected, and what can be understood is there.
namespace opc::model {

class ContentTypes;

// "[Content_Types].xml". A value; copies share it.
class PLATFORM_API ContentTypesTable {
public:
    explicit ContentTypesTable(std::string_view document);

    std::optional<ContentType> find(const PartName& name) const;
    // The parts that the table names, which need not be there.
    std::vector<PartName> overrides() const;
    // What breaks a rule, in the order of the document.
    const std::vector<std::string>& faults() const noexcept { return faults_; }

private:
    std::vector<std::string> faults_;
    std::shared_ptr<const ContentTypes> types_;
};

// A relationships part, the package's or that of a part.
struct PLATFORM_API RelationshipsTable {
    explicit RelationshipsTable(std::string_view document);

    std::vector<std::string> faults;
    std::vector<Relationship> relationships;
};

// An element of an XML part, UTF-8. Attributes without a namespace only.
struct PLATFORM_API XmlElement {
    std::size_t depth = 0;  // the root's is 1
    std::string name;       // without its prefix
    std::vector<std::pair<std::string, std::string>> attributes;
    std::string text;  // its own, without that of the elements in it

    // Null when there is none.
    const std::string* attribute(std::string_view attributeName) const;
};

// The elements of a document, in its order. Throws opc::Exception that starts with `where` for what is
// not well-formed or beyond the bounds of XML parts.
PLATFORM_API std::vector<XmlElement> readXmlElements(std::string_view document,
                                                     const std::string& where);

}  // namespace opc::model
