#pragma once

#include <foundation/ustring.hpp>

#include <string_view>

// The names that the packaging standard itself gives to items of a package.
namespace opc::names {

inline constexpr std::string_view kContentTypesItem = "[Content_Types].xml";
inline constexpr foundation::ustring_view kRelationshipsPart = u"/_rels/.rels";
inline constexpr foundation::ustring_view kRelationshipsType =
    u"application/vnd.openxmlformats-package.relationships+xml";
// The relationships of part "/folder/name" stand in "/folder/_rels/name.rels".
inline constexpr foundation::ustring_view kRelationshipsFolder = u"/_rels/";
inline constexpr foundation::ustring_view kRelationshipsExtension = u".rels";

}  // namespace opc::names
