#pragma once

#include <sys/types.h>
#include <fl/FileDescriptor.hpp>

#include <string>

namespace qzapp {

// How deep folders in a private folder may nest.
inline constexpr int kMaxNesting = 32;

// A folder beside the place of what is made in it, which must not outlive this object or a process that
// a signal ends: then it is removed with all that is in it (and where that fails, this object says so on
// standard error). That happens through the directories as
// they were opened, wherever their names lead by then. Failures are std::system_error.
class PrivateFolder {
public:
    // Makes it in `parent`, which must be open as long as this object lives, under a name of its own.
    // `mode` is that of mkdir().
    PrivateFolder(const fl::filesystem::FileDescriptor& parent, mode_t mode);
    ~PrivateFolder();
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    const fl::filesystem::FileDescriptor& descriptor() const noexcept { return folder_; }
    // In the parent.
    const std::string& name() const noexcept { return name_; }

    // The folder has got another name, and stays. Signals must be blocked since before that.
    void release() noexcept;

private:
    const fl::filesystem::FileDescriptor& parent_;
    std::string name_;
    fl::filesystem::FileDescriptor folder_;
    std::size_t slot_;
};

// Removes all private folders of this process, for a signal handler that ends it: no lock is taken and
// no memory.
void removePrivateFolders() noexcept;

// Opens a directory below `parent`, no link followed; throws std::system_error.
fl::filesystem::FileDescriptor openFolder(const fl::filesystem::FileDescriptor& parent,
                                          const std::string& name);

}  // namespace qzapp
