#pragma once

#include <foundation/Export.hpp>
#include <tarvo/COSMethodSignature.hpp>
#include <tarvo/Wrappable.hpp>

namespace tarvo::factory::impl {

// What validateSelfPointer() raises.
[[noreturn]] PLATFORM_API void raiseDestroyedObject();
[[noreturn]] PLATFORM_API void raiseForeignObject();

// The native object that a method was called on, as the type that the method is bound to. Raises a
// host error when it has been destroyed (null) or belongs to another class.
template <class Native>
Native& validateSelfPointer(full::Wrappable* self) {
    if (self == nullptr) raiseDestroyedObject();
    auto* const native = dynamic_cast<Native*>(self);
    if (native == nullptr) raiseForeignObject();
    return *native;
}

// The native object behind the first input; null when it has been destroyed. Raises a host error
// when the first input is no object, or one that no class of this system has made.
PLATFORM_API full::Wrappable* findSelf(Inputs inputs);

template <class Native>
Native& selfOf(Inputs inputs) {
    return validateSelfPointer<Native>(findSelf(inputs));
}

}  // namespace tarvo::factory::impl
