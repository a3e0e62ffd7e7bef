#pragma once

#include <foundation/Export.hpp>
#include <messages/MessageId.hpp>

#include <exception>
#include <string>

namespace messages {

// Thrown by native code to end a call from the host language with an error. The host catches it,
// shows its text, and gives the program the message's full identifier and arguments.
class PLATFORM_API HostError : public std::exception {
public:
    explicit HostError(MessageId message);
    ~HostError() override;

    const MessageId& message() const noexcept { return message_; }

    // The message's text in UTF-8, on one line, with control characters escaped. An argument that
    // is not valid UTF-16 shows U+FFFD.
    const char* what() const noexcept override { return text_.c_str(); }

private:
    MessageId message_;
    std::string text_;
};

}  // namespace messages

// Throws `message` as a HostError: a MessageId, or an object of a class derived from it such as
// KORVAL::lumenforge::lumenforge::LoadFailed.
template <class Message>
[[noreturn]] void hvErrMsgId(const Message& message) {
    throw messages::HostError(message);
}
