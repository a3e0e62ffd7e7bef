#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>

#include <fl/filesystem.hpp>

#include <memory>

namespace fl::filesystem {
struct FileStamp;
}
namespace opc::model {
class PackageState;
}
namespace opc::zip {
class ZipArchive;
}

namespace opc::zippackage {

// Names the zip file that a Package lives in. Construction touches no file; Package::open() does, and
// from then on this object and its copies mean the file that was opened, or that a save has written:
// opening it again fails when another file has the name by then, or this one was changed. While one
// package has it open for reading, others read through the same open file. Use an object and its
// copies from one thread at a time.
class PLATFORM_API ZipPhysicalPackage {
public:
    // A relative `path` counts from the working directory of now. Without `allowZip64` a save that
    // would need the zip64 extensions (4 GiB, 65,535 items) throws instead. Throws std::system_error
    // for a relative path when there is no working directory.
    ZipPhysicalPackage(const foundation::ustring& path, bool allowZip64);
    ZipPhysicalPackage(const fl::filesystem::path& path, bool allowZip64);

    const fl::filesystem::path& path() const noexcept { return path_; }
    bool allowsZip64() const noexcept { return allowZip64_; }
    // Whether it has been opened or saved.
    bool isBound() const noexcept;
    // Whether `name` leads to the file that was opened or saved, by links of any kind. Throws
    // std::system_error when that cannot be told.
    bool isAt(const fl::filesystem::path& name) const;

private:
    friend class model::PackageState;
    struct Binding;

    std::shared_ptr<const zip::ZipArchive> openArchive() const;
    std::shared_ptr<const zip::ZipArchive> openByName() const;
    [[noreturn]] void throwChanged() const;
    void bindTo(const fl::filesystem::FileStamp& saved) const noexcept;

    fl::filesystem::path path_;
    bool allowZip64_;
    std::shared_ptr<Binding> binding_;  // never null
};

}  // namespace opc::zippackage
