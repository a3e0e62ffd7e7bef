#include <opc/Exception.hpp>

namespace opc {

// Defined here so that every shared object sees the same type.
Exception::~Exception() = default;

namespace model {

PackageNotFound::~PackageNotFound() = default;

}  // namespace model
}  // namespace opc
