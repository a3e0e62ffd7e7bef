#pragma once

#include <foundation/Export.hpp>

namespace tarvo::factory::full {

// Base of the native objects that back host objects. A derived class calls retract(*this) first in
// its destructor, so that no call reaches the object while its members are destroyed.
class PLATFORM_API Wrappable {
public:
    Wrappable(const Wrappable&) = delete;
    Wrappable& operator=(const Wrappable&) = delete;
    virtual ~Wrappable();

protected:
    Wrappable();
};

// Unbinds a native object from its host object, whose handles then refer to no object. The caller
// owns the native object from then on. Does nothing if the object is not bound.
PLATFORM_API void retract(Wrappable& native) noexcept;

}  // namespace tarvo::factory::full
