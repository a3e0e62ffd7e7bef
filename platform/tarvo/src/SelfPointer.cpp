#include <tarvo/SelfPointer.hpp>

#include <hvarray/Array.hpp>
#include <hvarray/Inspection.hpp>
#include <messages/Catalog.hpp>
#include <tarvo/BindingRegistry.hpp>
#include <tarvo/DataTypes.hpp>
#include <tarvo/Errors.hpp>

namespace tarvo::factory::impl {

void raiseDestroyedObject() {
    raise(messages::kDestroyedObject, {});
}

void raiseForeignObject() {
    raise(messages::kForeignObject, {});
}

full::Wrappable* findSelf(Inputs inputs) {
    const hvArray_tag* const self = inputs.empty() ? nullptr : inputs.front();
    if (self == nullptr || matrix::classOf(*self) != matrix::ArrayClass::Object) {
        raise(messages::kNotAnObject, {describe(self)});
    }
    if (!basic::BindingRegistry::hasMade(*self)) raiseForeignObject();
    return basic::BindingRegistry::instance().find(*self);
}

}  // namespace tarvo::factory::impl
