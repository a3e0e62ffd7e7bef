#include <foundation/Exceptions.hpp>

namespace foundation::core::except {

InternalException::~InternalException() noexcept = default;

const char* BadAlloc::what() const noexcept {
    return "out of memory";
}

}  // namespace foundation::core::except
