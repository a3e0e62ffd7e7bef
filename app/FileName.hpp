#pragma once

#include <fl/FileDescriptor.hpp>
#include <fl/filesystem.hpp>

#include <memory>
#include <optional>
#include <string>

namespace qzapp {

// A file that stays open, with what it was when it was opened.
struct HeldFile {
    fl::filesystem::FileDescriptor file;
    fl::filesystem::FileStamp stamp;
    // The file that it is a copy of, if any: standard input may be one.
    std::optional<fl::filesystem::FileStamp> original = {};
};

// A file as the user named it. Messages show `shown`, which for a private working copy is the name of
// the file that it will become.
struct FileName {
    std::string shown;
    fl::filesystem::path path;
    // A file to be read is opened once, and `path` is then its private name, so that whoever reads it
    // by name reads this one, whatever the user's name leads to by now. Null for files to be written.
    std::shared_ptr<const HeldFile> held = {};
    bool isStandardInput = false;  // which no command can name again

    const foundation::ustring& native() const noexcept { return path.native(); }
    // The bytes for the system; empty when there are none (see fl::filesystem::path).
    std::string bytes() const { return fl::filesystem::detail::make_native_access_form_i18n(path); }
};

}  // namespace qzapp
