#pragma once

#include <foundation/Export.hpp>
#include <tarvo/COSMethodSignature.hpp>
#include <tarvo/Wrappable.hpp>

namespace tarvo::factory::impl {

// These throw messages::HostError for validateSelfPointer(), which is a template and so leaves that
// to functions in the library.
[[noreturn]] PLATFORM_API void raiseDestroyedObject();
[[noreturn]] PLATFORM_API void raiseForeignObject();

// Checks that the native object on which a method was called is of the method's class, and returns
// it as such. `self` is null if the object has been destroyed. Throws messages::HostError
// (DestroyedObject, ForeignObject).
template <class Native>
Native& validateSelfPointer(full::Wrappable* self) {
    if (self == nullptr) raiseDestroyedObject();
    auto* const native = dynamic_cast<Native*>(self);
    if (native == nullptr) raiseForeignObject();
    return *native;
}

// The native object of the first input; null if it has been destroyed. Throws messages::HostError
// if the first input is not an object (NotAnObject), or is one that this class system has not made
// (ForeignObject).
PLATFORM_API full::Wrappable* findSelf(Inputs inputs);

// The native object on which a method was called, checked. Throws what the two functions above
// throw.
template <class Native>
Native& selfOf(Inputs inputs) {
    return validateSelfPointer<Native>(findSelf(inputs));
}

}  // namespace tarvo::factory::impl
