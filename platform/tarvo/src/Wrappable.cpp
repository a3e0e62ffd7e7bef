#include <tarvo/Wrappable.hpp>

#include <tarvo/BindingRegistry.hpp>

namespace tarvo::factory::full {

Wrappable::Wrappable() = default;

// If a derived class has not retracted itself, this prevents a binding to a destroyed object. It is
// late: calls could reach the object while the derived destructor ran.
Wrappable::~Wrappable() {
    retract(*this);
}

void retract(Wrappable& native) noexcept {
    basic::BindingRegistry::instance().remove(native);
}

}  // namespace tarvo::factory::full
