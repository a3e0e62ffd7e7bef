#pragma once

#include <foundation/Export.hpp>
#include <foundation/JoinedText.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>
#include <opc/PartKind.hpp>
#include <opc/Relationship.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

// The part of an app file that holds its code: UTF-8 without a byte-order mark. The package has one
// relationship to it; the part's name is only the usual one.
namespace quillcode::codepart {

inline constexpr const char16_t* kName = u"/korval/code.k";
inline constexpr const char16_t* kContentType = u"application/vnd.quorvane.korval.code";
inline constexpr const char16_t* kRelationshipType =
    foundation::kJoinedText<opc::names::kHostSchemas, u"/korval/2026/relationships/code">.data();
inline constexpr opc::model::PartKindRow kKind{"the app's code", kName, kContentType,
                                               kRelationshipType};
// The most code that is read or written: 256 MiB of UTF-8.
inline constexpr std::uint64_t kMaxBytes = std::uint64_t(256) << 20;

// The package's relationships of kRelationshipType: one, or none if `least` is 0. Throws
// opc::Exception if there are fewer than `least`, or several, because nobody could say which one
// leads to the code.
PLATFORM_API std::vector<opc::model::Relationship> findRelationships(
    const opc::model::Package& package, std::size_t least);

}  // namespace quillcode::codepart
