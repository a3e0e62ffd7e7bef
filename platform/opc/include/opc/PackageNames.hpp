#pragma once

#include <foundation/ustring.hpp>

#include <string_view>

// The names that the packaging standard itself gives.
namespace opc::names {

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

}  // namespace opc::names
