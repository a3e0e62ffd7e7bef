#pragma once

#include <foundation/Export.hpp>
#include <messages/MessageId.hpp>

#include <exception>
#include <string>

namespace messages {

// What native code throws to end a call from the host language: the host shows the message and hands
// its identifier to the program.
class PLATFORM_API HostError : public std::exception {
public:
    explicit HostError(MessageId message);
    ~HostError() override;

    const MessageId& message() const noexcept { return message_; }

    // The message's text in UTF-8.
    const char* what() const noexcept override { return text_.c_str(); }

private:
    MessageId message_;
    std::string text_;
};

}  // namespace messages

// Raises `message`, an object of one of the catalog's message classes, as a host error.
template <class Message>
[[noreturn]] void hvErrMsgId(const Message& message) {
    throw messages::HostError(message);
}
