#pragma once

#include <foundation/ustring.hpp>

#include <optional>
#include <string>

namespace qzhost {

struct ReadOptions {
    foundation::ustring file;
    bool json = false;
    std::optional<foundation::ustring> screenshot;  // where to write it
};

// Reads a text app file through the registered class and returns its metadata as text. What the class
// refuses is a messages::HostError; a screenshot that cannot be written is a std::system_error.
std::string readApp(const ReadOptions& options);

}  // namespace qzhost
