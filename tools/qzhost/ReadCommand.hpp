#pragma once

#include <foundation/ustring.hpp>

#include <optional>
#include <string>

namespace qzhost {

struct ReadOptions {
    foundation::ustring file;
    bool json = false;
    std::optional<foundation::ustring> screenshot;  // where to write it
    bool force = false;                             // over a file that is there, but for the app
};

// Reads a text app file through the registered class and returns its metadata as text. What the class
// refuses is a messages::HostError; a screenshot that cannot be written, or would replace what it must
// not, is a std::runtime_error.
std::string readApp(const ReadOptions& options);

}  // namespace qzhost
