#include <tarvo/Wrappable.hpp>

#include <tarvo/BindingRegistry.hpp>

namespace tarvo::factory::full {

Wrappable::Wrappable() = default;

// For a derived class that has forgotten to: a binding to a dead object would be worse.
Wrappable::~Wrappable() {
    retract(*this);
}

void retract(Wrappable& native) noexcept {
    basic::BindingRegistry::instance().remove(native);
}

}  // namespace tarvo::factory::full
