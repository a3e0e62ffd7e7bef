#pragma once

#include <foundation/Export.hpp>

namespace tarvo::factory::full {

// Base of the native objects behind host objects. A derived class retracts itself first thing in its
// destructor, so that no call reaches it while it is being taken apart.
class PLATFORM_API Wrappable {
public:
    Wrappable(const Wrappable&) = delete;
    Wrappable& operator=(const Wrappable&) = delete;
    virtual ~Wrappable();

protected:
    Wrappable();
};

// Detaches a native object from its host object, whose handles then refer to no object. Does nothing
// for an object that is not bound.
PLATFORM_API void retract(Wrappable& native) noexcept;

}  // namespace tarvo::factory::full
