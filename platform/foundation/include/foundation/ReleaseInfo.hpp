#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>

namespace foundation::release_info {

// Which release of the host a file was made for. `legacy` marks a release known by its label only,
// because a newer host wrote the file on its behalf.
struct PLATFORM_API ReleaseInfo {
    ustring release;  // "R2026b"
    bool legacy = false;

    // The running host's.
    static ReleaseInfo current();
    static ReleaseInfo makeLegacy(ustring release);

    // For people: "R2026b", "R2016a (legacy)".
    ustring toString() const;

    friend bool operator==(const ReleaseInfo&, const ReleaseInfo&) = default;
};

}  // namespace foundation::release_info
