#pragma once

#include <fl/FileDescriptor.hpp>
#include <fl/ReplacementFile.hpp>
#include <fl/filesystem.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "app/FileName.hpp"
#include "app/PrivateFolder.hpp"

namespace qzapp {

// Makes several saves of a file count as one. Construct it, save to workingFile() as often as
// needed, then call commit(), which puts the working file in the target's place. The working file
// is in a private folder next to the target. Without commit(), after an exception or a signal, the
// target is as it was and the private folder is gone. All failures are Errors about the target.
class Transaction {
public:
    // With ContentOfTarget, the working file begins as a second hard link to the target (a copy, if
    // the file system has no hard links). So it may be replaced by a save, but never written into.
    // With New, the target may not be there, and none that appears is replaced.
    enum class Start { Empty, New, ContentOfTarget };

    // `extension`, with its dot, is that of the working file; without one, it gets the target's.
    // Readers and writers of apps insist on their extensions.
    Transaction(const FileName& target, Start start, const std::string& extension = {});
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    // The target as it was when the transaction began, if it has ContentOfTarget.
    fl::filesystem::FileStamp startStamp() const { return source_.stamp(); }
    // The file that commit() replaces, after all symbolic links have been followed.
    const fl::filesystem::path& resolvedTarget() const noexcept { return saveTarget_->resolved(); }
    // The file to work on; messages about it show the target's name.
    const FileName& workingFile() const noexcept { return working_; }

    // The private folder, which holds the working file and what saves put next to it.
    const fl::filesystem::FileDescriptor& folder() const noexcept { return folder_->descriptor(); }
    // The working file, open for reading and writing, if it was Empty at the start.
    fl::filesystem::FileDescriptor& file() noexcept { return file_; }
    // Writes into a working file that was Empty at the start; not for a ContentOfTarget one.
    void write(std::string_view bytes, std::uint64_t offset);

    // Makes an empty file of this name in the folder, open for reading and writing.
    fl::filesystem::FileDescriptor newFile(const std::string& name) const;
    // Puts a file from the folder in the place of the working file.
    void replaceWorkingFile(const std::string& name) const;

    // Replaces the target atomically and durably. Throws, and leaves the target alone, if another
    // program has changed or made it since the transaction was constructed.
    void commit();

private:
    void createFolder(const std::string& extension);
    std::string nameOfFolder(const std::string& parent) const;
    void takeContentOfTarget();
    void createWorkingFile();
    bool linkWorkingFile() const;

    FileName target_;
    std::optional<fl::filesystem::SaveTarget> saveTarget_;
    FileName working_;
    fl::filesystem::FileDescriptor directory_;
    // Holds the working file and whatever the saves put next to it, so that one removal gets rid of
    // all.
    std::optional<PrivateFolder> folder_;
    std::string workingName_;  // in folder_
    // The target as it was. Kept open so that no other file gets its inode number, by which
    // commit() recognises it.
    fl::filesystem::FileDescriptor source_;
    fl::filesystem::FileDescriptor file_;
};

}  // namespace qzapp
