#pragma once

#include <opc/Package.hpp>

#include <cstddef>
#include <vector>

#include "app/check/PackageView.hpp"

// Digital signatures of packages, as the packaging standard lays them down: a relationship of the package
// leads to their origin, that to signatures, and those to certificates. Nothing here verifies one.
namespace qzapp::signatures {

// Whether a part of this type belongs to a signature.
bool isPartOfSignature(const opc::model::ContentType& type);

bool isSigned(const opc::model::Package& package);
bool isSigned(const PackageView& package);
// How many signatures the package has. Their origin and the certificates do not count.
std::size_t count(const PackageView& package);

// Takes out the parts of signatures with their relationships. A part that a relationship of the package
// leads to as something else stays, whatever its type says.
void remove(opc::model::Package& package);

}  // namespace qzapp::signatures
