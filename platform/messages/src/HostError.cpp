#include <messages/HostError.hpp>

#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>

#include <utility>

namespace messages {

HostError::HostError(MessageId message)
    : message_(std::move(message)),
      text_(foundation::printable(fl::i18n::to_display(message_.text()))) {}

HostError::~HostError() = default;

}  // namespace messages
