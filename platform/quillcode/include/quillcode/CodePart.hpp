#pragma once

#include <foundation/Export.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>
#include <opc/PartKind.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

// The part of an app file that holds its code, as reader and writer agree on it.
namespace quillcode::codepart {

inline constexpr const char16_t* kName = u"/korval/code.k";
inline constexpr const char16_t* kContentType = u"application/vnd.quorvane.korval.code";
inline constexpr const char16_t* kRelationshipType =
    foundation::kJoinedText<opc::names::kHostSchemas, u"/korval/2026/relationships/code">.data();
inline constexpr opc::model::PartKindRow kKind{"the app's code", kName, kContentType,
                                               kRelationshipType};
// The most code that is read or written.
inline constexpr std::uint64_t kMaxBytes = std::uint64_t(256) << 20;

// The relationships that lead to the code. Throws opc::Exception when there are several, since nobody
// can tell which one is meant, or fewer than `least`.
PLATFORM_API std::vector<opc::model::Relationship> findRelationships(
    const opc::model::Package& package, std::size_t least);

}  // namespace quillcode::codepart
