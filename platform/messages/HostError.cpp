#include <messages/HostError.hpp>

#include <fl/i18n.hpp>

#include <utility>

namespace messages {

HostError::HostError(MessageId message)
    : message_(std::move(message)), text_(fl::i18n::to_display(message_.text())) {}

HostError::~HostError() = default;

}  // namespace messages
