#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>

namespace foundation::release_info {

// The release of the host that a file was made for. `legacy` marks a release other than the running
// host's: this host writes the file on its behalf and knows nothing of it but the label.
struct PLATFORM_API ReleaseInfo {
    ustring release;  // "R2026b"
    bool legacy = false;

    // The running host's release, which is fixed when this library is built.
    static ReleaseInfo current();
    static ReleaseInfo makeLegacy(ustring release);

    // For people: "R2026b", "R2016a (legacy)".
    ustring toString() const;

    friend bool operator==(const ReleaseInfo&, const ReleaseInfo&) = default;
};

}  // namespace foundation::release_info
