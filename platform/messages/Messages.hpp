#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>

#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace messages {

using foundation::ustring;

// One message of the host's catalog with its arguments.
class PLATFORM_API MessageId {
public:
    MessageId(std::string catalog, std::string identifier, std::vector<ustring> arguments);

    const std::string& catalog() const noexcept {
        return catalog_;
    }  // "KORVAL:lumenforge:lumenforge"
    const std::string& identifier() const noexcept { return identifier_; }  // "LoadFailed"
    const std::vector<ustring>& arguments() const noexcept { return arguments_; }
    // "KORVAL:lumenforge:lumenforge:LoadFailed"
    std::string fullIdentifier() const;

    // The catalog's text with the arguments in place of {0}, {1}, ...; for a message that the catalog
    // does not have, the full identifier followed by the arguments.
    ustring text() const;

private:
    std::string catalog_;
    std::string identifier_;
    std::vector<ustring> arguments_;
};

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

namespace KORVAL::lumenforge::lumenforge {

// Each is built from the file name it is about.
class PLATFORM_API InvalidFileName : public messages::MessageId {
public:
    explicit InvalidFileName(const foundation::ustring& fileName);
};

class PLATFORM_API InvalidFileExtension : public messages::MessageId {
public:
    explicit InvalidFileExtension(const foundation::ustring& fileName);
};

class PLATFORM_API InvalidFileExtensionCase : public messages::MessageId {
public:
    explicit InvalidFileExtensionCase(const foundation::ustring& fileName);
};

class PLATFORM_API LoadFailed : public messages::MessageId {
public:
    explicit LoadFailed(const foundation::ustring& fileName);
};

}  // namespace KORVAL::lumenforge::lumenforge
