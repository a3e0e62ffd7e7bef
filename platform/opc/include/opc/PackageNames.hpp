#pragma once

#include <foundation/Export.hpp>
#include <foundation/JoinedText.hpp>
#include <foundation/ustring.hpp>
#include <opc/Names.hpp>

#include <optional>
#include <string>
#include <string_view>

// The names that the packaging standard itself gives, how names of parts and of items in the zip file belong
// together, and how the host's own schemas begin.
namespace opc::names {

inline constexpr foundation::FixedText kHostSchemas = "http://schemas.quorvane.com";

inline constexpr std::string_view kContentTypesItem = "[Content_Types].xml";
inline constexpr foundation::ustring_view kRelationshipsPart = u"/_rels/.rels";
inline constexpr foundation::ustring_view kRelationshipsType =
    u"application/vnd.openxmlformats-package.relationships+xml";
// The relationships of part "/folder/name" stand in "/folder/_rels/name.rels".
inline constexpr foundation::ustring_view kRelationshipsFolder = u"/_rels/";
inline constexpr foundation::ustring_view kRelationshipsExtension = u".rels";
// Relationship types that lead from the package to its thumbnail and its core properties.
inline constexpr foundation::ustring_view kThumbnailRelationship =
    u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/thumbnail";
inline constexpr foundation::ustring_view kCorePropertiesRelationship =
    u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties";

// The part that an item of this name would be. Folders and names that break a rule are none: then `fault`,
// when given, says why.
PLATFORM_API std::optional<model::PartName> partNameOf(std::string_view item,
                                                       std::string* fault = nullptr);
// The name of the item that a new part is stored as.
PLATFORM_API std::string itemNameOf(const model::PartName& part);
// Whether the item of this name says which types the parts have. Case does not count.
PLATFORM_API bool isContentTypesItem(std::string_view item);

// Where the package's own relationships stand, and the type of all parts that hold relationships.
PLATFORM_API const model::PartName& packageRelationships();
PLATFORM_API const model::ContentType& relationshipsType();
PLATFORM_API bool isRelationshipsName(const model::PartName& name);
// Where the relationships of a part stand, and for such a name the part; nullopt for those of the package.
PLATFORM_API model::PartName relationshipsOf(const model::PartName& part);
PLATFORM_API std::optional<model::PartName> sourceOf(const model::PartName& relationships);

}  // namespace opc::names
