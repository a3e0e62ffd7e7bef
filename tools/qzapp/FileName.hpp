#pragma once

#include <fl/filesystem.hpp>

#include <string>

namespace qzapp {

// A file as the user named it. Messages show `shown`, which for a private working copy is the name of
// the file that it will become.
struct FileName {
    std::string shown;
    fl::filesystem::path path;

    const foundation::ustring& native() const noexcept { return path.native(); }
    // The bytes for the system; empty when there are none (see fl::filesystem::path).
    std::string bytes() const { return fl::filesystem::detail::make_native_access_form_i18n(path); }
};

}  // namespace qzapp
