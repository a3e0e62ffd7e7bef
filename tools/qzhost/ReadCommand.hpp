#pragma once

#include <foundation/ustring.hpp>

#include <functional>
#include <optional>
#include <string>

namespace qzhost {

struct ReadOptions {
    foundation::ustring file;
    bool json = false;
    std::optional<foundation::ustring> screenshot;  // the file to write it to
    bool force = false;                             // replace that file, unless it is the app
};

// Reads a text app file through the registered class, passes its metadata as text to `print`, and
// then writes its screenshot if asked to, completely or not at all: not if `print` throws. Throws the
// class's messages::HostError if it refuses the file, and std::runtime_error if the screenshot cannot
// be written or would replace a file that it must not; `print` is not called if that is known before.
void readApp(const ReadOptions& options, const std::function<void(const std::string&)>& print);

}  // namespace qzhost
