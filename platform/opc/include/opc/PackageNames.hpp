#pragma once

#include <foundation/Export.hpp>
#include <foundation/JoinedText.hpp>
#include <foundation/ustring.hpp>
#include <opc/PartName.hpp>

#include <optional>
#include <string>
#include <string_view>

// The names that the packaging standard gives, the start of the host's own names, and how names of
// parts correspond to names of items in the zip file. A part name has a leading "/", which the name
// of its item lacks.
namespace opc::names {

// What the namespaces and relationship types of the host begin with.
inline constexpr foundation::FixedText kHostSchemas = "http://schemas.quorvane.com";
// What the namespaces and relationship types of the packaging standard begin with.
inline constexpr foundation::FixedText kPackageSchemas =
    "http://schemas.openxmlformats.org/package/2006";

// The item that says which content types the parts have. It is not a part.
inline constexpr std::string_view kContentTypesItem = "[Content_Types].xml";
// The part that holds the package's own relationships.
inline constexpr foundation::ustring_view kRelationshipsPart = u"/_rels/.rels";
// The content type of all parts that hold relationships.
inline constexpr foundation::ustring_view kRelationshipsType =
    u"application/vnd.openxmlformats-package.relationships+xml";
// The relationships of the part "/folder/name" are in the part "/folder/_rels/name.rels".
inline constexpr foundation::ustring_view kRelationshipsFolder = u"/_rels/";
inline constexpr foundation::ustring_view kRelationshipsExtension = u".rels";
// The types of the relationships from the package to its thumbnail and to its core properties.
inline constexpr foundation::ustring_view kThumbnailRelationship =
    foundation::kJoinedText<kPackageSchemas, u"/relationships/metadata/thumbnail">.data();
inline constexpr foundation::ustring_view kCorePropertiesRelationship =
    foundation::kJoinedText<kPackageSchemas, u"/relationships/metadata/core-properties">.data();

// The name of the part that an item would be; nullopt for folders and for names that break a rule
// for part names. `fault`, unless null, is set to the rule, or to "" if there is a part name.
PLATFORM_API std::optional<model::PartName> partNameOf(std::string_view item,
                                                       std::string* fault = nullptr);
// The name of the item that a new part is stored as.
PLATFORM_API std::string itemNameOf(const model::PartName& part);
// Whether an item has the name kContentTypesItem, ignoring ASCII case.
PLATFORM_API bool isContentTypesItem(std::string_view item);

// kRelationshipsPart and kRelationshipsType as checked values, which live as long as the program.
PLATFORM_API const model::PartName& packageRelationships();
PLATFORM_API const model::ContentType& relationshipsType();
// Whether this is the name of a part that holds the relationships of a part or of the package.
PLATFORM_API bool isRelationshipsName(const model::PartName& name);
// The name of the part that holds the relationships of `part`.
PLATFORM_API model::PartName relationshipsOf(const model::PartName& part);
// The name of the part whose relationships the part `relationships` holds; nullopt if they are
// those of the package. isRelationshipsName(relationships) must be true.
PLATFORM_API std::optional<model::PartName> sourceOf(const model::PartName& relationships);

}  // namespace opc::names
