#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <messages/Catalog.hpp>

#include <stdexcept>
#include <string>
#include <vector>

namespace tarvo {

// A native module registers something that cannot be: a name twice, a type that nobody knows. The
// fault is the module's, so it is no host error.
class PLATFORM_API RegistrationError : public std::logic_error {
public:
    explicit RegistrationError(const std::string& message);
    ~RegistrationError() override;
};

// Ends a call from the host language with a message of the catalog.
[[noreturn]] PLATFORM_API void raise(const messages::CatalogEntry& entry,
                                     std::vector<foundation::ustring> arguments);

}  // namespace tarvo
