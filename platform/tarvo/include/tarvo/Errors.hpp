#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <messages/Catalog.hpp>

#include <stdexcept>
#include <string>
#include <vector>

namespace tarvo {

// Thrown if a native module registers something impossible, such as a name twice or an unknown
// type. It is not a host error, because the fault is the module's and not the host program's.
class PLATFORM_API RegistrationError : public std::logic_error {
public:
    explicit RegistrationError(const std::string& message);
    ~RegistrationError() override;
};

// Ends a call from the host language by throwing messages::HostError with a message of the catalog.
[[noreturn]] PLATFORM_API void raise(const messages::CatalogEntry& entry,
                                     std::vector<foundation::ustring> arguments);

}  // namespace tarvo
