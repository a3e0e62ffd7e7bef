#pragma once

#include <fl/FileDescriptor.hpp>
#include <fl/filesystem.hpp>
#include <foundation/ustring.hpp>

#include <memory>
#include <optional>
#include <string>

namespace qzapp {

// An open file and the stamp that it had when it was opened.
struct HeldFile {
    fl::filesystem::FileDescriptor file;
    fl::filesystem::FileStamp stamp;
    // If standard input was copied into this file and is a file itself, the stamp of that.
    std::optional<fl::filesystem::FileStamp> original = {};
};

// A file: the name that messages show, and the name by which the libraries open it. The two differ
// for a file that is held open and for a private working copy. Copies share the open file, which is
// closed with the last of them.
struct FileName {
    // The name as the user gave it. For a working copy, the name of the file that it will become.
    std::string shown;
    fl::filesystem::path path;
    // Set for a file to be read (see hold()); `path` is then the private name of this open file, so
    // all that open it by name read this very file, even if another one has taken its place. Null
    // for a file to be written.
    std::shared_ptr<const HeldFile> held = {};
    // Standard input, or what goes to standard output: no other command can name it.
    bool isStream = false;

    const foundation::ustring& native() const noexcept { return path.native(); }
    // The name as the system takes it; empty if it cannot be expressed (see fl::filesystem::path).
    std::string bytes() const { return fl::filesystem::detail::make_native_access_form_i18n(path); }
};

}  // namespace qzapp
