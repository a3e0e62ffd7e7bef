#pragma once

#include <sys/types.h>
#include <fl/FileDescriptor.hpp>

#include <cstddef>
#include <string>

namespace qzapp {

// How deep the folders in a private folder may nest; what lies deeper is not removed.
inline constexpr int kMaxNesting = 32;

// A hidden folder ".qzapp-PID-XXXXXXXX" in which new files are prepared, next to the place that
// they will be renamed to. The destructor removes it with all that it holds, and warn()s with its
// path if that fails; if a signal ends the process, removePrivateFolders() does. Both go through
// the directories as they were opened, wherever their names lead by then. A process may have 16 at
// a time, on any threads.
class PrivateFolder {
public:
    // Makes the folder in `parent`, which must stay open as long as this object lives. `mode` is
    // that of mkdir(). Throws std::system_error, or std::length_error for the seventeenth; then no
    // folder is left.
    PrivateFolder(const fl::filesystem::FileDescriptor& parent, mode_t mode);
    ~PrivateFolder();
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    const fl::filesystem::FileDescriptor& descriptor() const noexcept { return folder_; }
    // Its name in the parent.
    const std::string& name() const noexcept { return name_; }

    // Throws std::system_error unless this name in the parent leads to this folder. Another program
    // may have put a folder of its own in the place of this one before it was renamed.
    void requireAt(const std::string& name) const;
    // Tells this object that the folder has been renamed and is not to be removed. Signals must
    // have been blocked since before the rename, or a handler could remove the folder in between.
    void release() noexcept;

private:
    const fl::filesystem::FileDescriptor& parent_;
    std::string name_;
    fl::filesystem::FileDescriptor folder_;
    std::size_t slot_;
};

// Removes all private folders of this process. For a signal handler that ends the process: takes no
// lock and allocates nothing.
void removePrivateFolders() noexcept;

// Opens the directory `name` in `parent`, which this process has just made with this mode. Throws
// std::system_error, also if by now the name leads to a folder that holds something, belongs to
// another user, or gives others rights that `mode` does not: another program may have put it there,
// could read or change all that is written into it, and would lose what it holds when the folder is
// removed.
fl::filesystem::FileDescriptor openNewFolder(const fl::filesystem::FileDescriptor& parent,
                                             const std::string& name, mode_t mode);

}  // namespace qzapp
