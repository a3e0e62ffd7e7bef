#pragma once

#include <opc/Package.hpp>
#include <opc/PartName.hpp>

#include <cstddef>

#include "app/check/PackageView.hpp"

// Digital signatures as the packaging standard defines them: a relationship of the package leads to
// the origin part, the origin's relationships lead to the signatures, and theirs to certificates.
// Nothing here verifies a signature.
namespace qzapp::signatures {

// Whether this is the content type of an origin, a signature or a certificate.
bool isPartOfSignature(const opc::model::ContentType& type);

// Whether the package has a relationship to an origin, or any part of a signature.
bool isSigned(const opc::model::Package& package);
bool isSigned(const PackageView& package);
// The number of signatures, without the origin and the certificates.
std::size_t count(const PackageView& package);

// Removes the parts of all signatures with their relationships; the caller saves. A part that
// another relationship of the package leads to stays, whatever its content type says.
void remove(opc::model::Package& package);

}  // namespace qzapp::signatures
