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

// The zip file of a Package. Constructing one touches no file. Package::open() does, and binds this
// object and its copies to the file that was opened; a save binds them to the file that it wrote.
// From then on, opening fails if the name leads to another file or the file was changed meanwhile.
// While one package has the file open, others that are opened from this object or a copy share its
// file descriptor and what was read and checked. Use an object and its copies from one thread at a
// time.
class PLATFORM_API ZipPhysicalPackage {
public:
    // A relative `path` is resolved against the working directory at once. Without `allowZip64`, a
    // save that needs the zip64 extensions (for 4 GiB or 65,535 items) throws; reading such files
    // is always allowed. Throws std::system_error if the path is relative and there is no working
    // directory.
    ZipPhysicalPackage(const foundation::ustring& path, bool allowZip64);
    ZipPhysicalPackage(const fl::filesystem::path& path, bool allowZip64);

    // The path in absolute form, unless it is empty.
    const fl::filesystem::path& path() const noexcept { return path_; }
    bool allowsZip64() const noexcept { return allowZip64_; }
    // Whether a package has been opened from or saved to the file.
    bool isBound() const noexcept;
    // Whether `name` leads to the file that this object is bound to, directly or by symbolic or
    // hard links. Throws std::system_error if that cannot be determined.
    bool isAt(const fl::filesystem::path& name) const;

private:
    friend class model::PackageState;
    struct Binding;

    std::shared_ptr<const zip::ZipArchive> openArchive() const;
    std::shared_ptr<const zip::ZipArchive> openByName() const;
    // Throws if another file than the one that this object is bound to has its name now.
    void requireNoOtherFile() const;
    [[noreturn]] void throwChanged() const;
    void bindTo(const fl::filesystem::FileStamp& saved) const noexcept;

    fl::filesystem::path path_;
    bool allowZip64_;
    std::shared_ptr<Binding> binding_;  // never null
};

}  // namespace opc::zippackage
