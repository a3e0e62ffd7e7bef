#pragma once

#include <fl/FileDescriptor.hpp>
#include <foundation/ProcessMark.hpp>

#include <sys/types.h>

#include <string>

namespace fl::filesystem {

// A new file that only its owner may read. It has no name as long as it needs none, if the file
// system can do that and /proc is there to give it one; otherwise it has a hidden name beside the
// file that it is to replace. All functions throw std::system_error unless they are noexcept.
class TemporaryFile {
public:
    // In a directory, which must outlive this object, for the file called `target` there. Only the
    // process of the mark, which must outlive this object, too, makes and removes names.
    TemporaryFile(const FileDescriptor& directory, const std::string& target,
                  const foundation::ProcessMark& process);
    ~TemporaryFile() { removeName(); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    FileDescriptor& file() noexcept { return file_; }
    // The name in the directory, which the file gets now if it has none.
    const std::string& name();
    // To be called once the file has been renamed.
    void forgetName() noexcept { name_.clear(); }
    // A forked process has a copy of this object, but the name still belongs to its parent.
    void removeName() noexcept;

private:
    const FileDescriptor* directory_;
    const foundation::ProcessMark* process_;
    std::string target_;
    FileDescriptor file_;
    std::string name_;  // empty while the file has none
};

// Creates a file without a name on any file system: if it has to be created with one, removes that.
FileDescriptor createScratch(const FileDescriptor& directory, const std::string& target,
                             mode_t mode, const foundation::ProcessMark& process);

// Like unlinkat().
int removeName(const FileDescriptor& directory, const std::string& name) noexcept;

}  // namespace fl::filesystem
