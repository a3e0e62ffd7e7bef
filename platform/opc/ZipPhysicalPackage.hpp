#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>

#include <fl/filesystem.hpp>

namespace opc::zippackage {

// Names the zip file that a Package lives in. Binding touches no file; Package::open() does.
class PLATFORM_API ZipPhysicalPackage {
public:
    // `path` is absolute or relative to the working directory. Without `allowZip64` a save that
    // would need the zip64 extensions (4 GiB, 65,535 items) throws instead.
    ZipPhysicalPackage(foundation::ustring path, bool allowZip64);
    ZipPhysicalPackage(const fl::filesystem::path& path, bool allowZip64);

    const fl::filesystem::path& path() const noexcept { return path_; }
    bool allowsZip64() const noexcept { return allowZip64_; }

private:
    fl::filesystem::path path_;
    bool allowZip64_;
};

}  // namespace opc::zippackage
