#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>

#include <string>
#include <vector>

namespace messages {

using foundation::ustring;

// One message of the host's catalog with its arguments. It is a value, and owns its strings.
class PLATFORM_API MessageId {
public:
    // The names are not checked: a message that the catalog lacks is one, too.
    MessageId(std::string catalog, std::string identifier, std::vector<ustring> arguments);

    // "KORVAL:lumenforge:lumenforge"
    const std::string& catalog() const noexcept { return catalog_; }
    // "LoadFailed"
    const std::string& identifier() const noexcept { return identifier_; }
    // "KORVAL:lumenforge:lumenforge:LoadFailed"
    std::string fullIdentifier() const;

    const std::vector<ustring>& arguments() const noexcept { return arguments_; }

    // The catalog's text with the arguments in place of {0} to {9}. A placeholder without an
    // argument stays as it is. If the catalog lacks the message: the full identifier and the
    // arguments, with blanks between them.
    ustring text() const;

private:
    std::string catalog_;
    std::string identifier_;
    std::vector<ustring> arguments_;
};

}  // namespace messages
