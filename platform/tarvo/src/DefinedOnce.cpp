#include <tarvo/DefinedOnce.hpp>

#include <foundation/Immortal.hpp>
#include <foundation/Shown.hpp>
#include <tarvo/Errors.hpp>

namespace tarvo::internal {

std::recursive_mutex& definitionMutex() {
    static const foundation::Immortal<std::recursive_mutex> mutex;
    return *mutex;
}

void throwUsesItself(std::string_view name) {
    throw RegistrationError(
        foundation::shown(name) +
        ": its definition uses what it is defining, perhaps through another one; "
        "leave that use to the methods");
}

}  // namespace tarvo::internal
