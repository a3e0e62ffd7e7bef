#include <tarvo/Errors.hpp>

#include <messages/HostError.hpp>
#include <messages/MessageId.hpp>

#include <utility>

namespace tarvo {

RegistrationError::RegistrationError(const std::string& message) : std::logic_error(message) {}
RegistrationError::~RegistrationError() = default;

void raise(const messages::CatalogEntry& entry, std::vector<foundation::ustring> arguments) {
    hvErrMsgId(messages::MessageId(entry.catalog, entry.identifier, std::move(arguments)));
}

}  // namespace tarvo
