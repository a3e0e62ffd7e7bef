#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>

#include <string>
#include <vector>

namespace messages {

using foundation::ustring;

// One message of the host's catalog with its arguments.
class PLATFORM_API MessageId {
public:
    MessageId(std::string catalog, std::string identifier, std::vector<ustring> arguments);

    // "KORVAL:lumenforge:lumenforge", "LoadFailed", and both as one:
    // "KORVAL:lumenforge:lumenforge:LoadFailed".
    const std::string& catalog() const noexcept { return catalog_; }
    const std::string& identifier() const noexcept { return identifier_; }
    std::string fullIdentifier() const;

    const std::vector<ustring>& arguments() const noexcept { return arguments_; }

    // The catalog's text with the arguments in place of {0}, {1}, ...; for a message that the
    // catalog does not have, the full identifier followed by the arguments.
    ustring text() const;

private:
    std::string catalog_;
    std::string identifier_;
    std::vector<ustring> arguments_;
};

}  // namespace messages
