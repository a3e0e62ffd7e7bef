#pragma once

#include <foundation/ustring.hpp>

#include <optional>
#include <string>

namespace qzhost {

struct ReadOptions {
    foundation::ustring file;
    bool json = false;
    std::optional<foundation::ustring> screenshot;  // the file to write it to
    bool force = false;                             // replace that file, unless it is the app
};

// Reads a text app file through the registered class, writes its screenshot if asked to, and
// returns its metadata as text. Throws the class's messages::HostError if it refuses the file, and
// std::runtime_error if the screenshot cannot be written or would replace a file that it must not.
std::string readApp(const ReadOptions& options);

}  // namespace qzhost
