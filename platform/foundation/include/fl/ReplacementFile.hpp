#pragma once

#include <foundation/Export.hpp>

#include <fl/FileDescriptor.hpp>
#include <fl/filesystem.hpp>
#include <foundation/ProcessMark.hpp>

#include <memory>
#include <optional>
#include <string>

namespace fl::filesystem {

class SaveTarget;

// The message of a save, and of whoever opens a file again, if the file has changed since it was
// opened.
inline constexpr const char* kChangedMeanwhile =
    "someone else created, changed or removed the file in the meantime; it is left as it is now "
    "(open it again, or save under another name)";

// The message in a child process that was forked meanwhile, which may change nothing for its
// parent.
inline constexpr const char* kForkedMeanwhile =
    "was opened before this process was forked; open it again to change it";

// Throws std::system_error with that message in any process but the one of the mark.
PLATFORM_API void requireOwn(const foundation::ProcessMark& process);

// The message of a failure to create a file beside the one that is being saved.
inline constexpr const char* kCannotCreateFile = "cannot create a file in its directory";

// Where the symbolic link `name` in `directory` leads, for whoever is going to write there. Throws
// std::system_error if it cannot be read, or if it is a link of another user in a directory where
// everybody may create files, such as /tmp; the message then ends in `advice`.
PLATFORM_API std::string readTrustedLink(const FileDescriptor& directory, const std::string& name,
                                         const char* advice);

// Renames the file `content` over the target, under the rules of ReplacementFile::commit(), so it
// gets the target's owner, mode and attributes. The caller has written `content` completely, on the
// target's own file system. It stays under its name if anything fails before the rename.
PLATFORM_API void replaceWithFile(const SaveTarget& target, const path& content);

// The file that a save is going to replace or create. Construction follows the symbolic links of
// the name, so a link keeps pointing where it points, and the target of a dangling link is created.
// The object holds the file and its directory open and remembers the file's stamp; a save fails if
// the name, or a link on the way to it, leads elsewhere by then, or if the file has changed.
//
// Construct the target before reading the content that is to be edited, make the new content, and
// hand the target to a ReplacementFile or to replaceWithFile(). Use a target from one thread at a
// time. A target that was moved from can only be assigned to or destroyed. A child process that is
// forked afterwards, also in the middle of a save, cannot save through its copy: the save throws
// there before it makes, renames or removes a name.
class PLATFORM_API SaveTarget {
public:
    // `file` is absolute or relative to the present working directory, which later changes of the
    // working directory do not affect. Throws std::system_error if the directory cannot be opened,
    // if the file is not a regular file or may not be written, or if the name is a link of another
    // user in a directory where everybody may create files, such as /tmp.
    explicit SaveTarget(const path& file);
    SaveTarget(SaveTarget&&) noexcept;
    SaveTarget& operator=(SaveTarget&&) noexcept;
    ~SaveTarget();

    // Where the links of the given name lead. Relative if both the name and the links are.
    const path& resolved() const noexcept;
    // The stamp of the file that a save may replace; nullopt if there was no such file, in which
    // case a save only creates it.
    const std::optional<FileStamp>& stamp() const noexcept;

    // Replaces stamp() by that of the file that the caller opened as this target and made the new
    // content from. The caller keeps that file open until the save, because the system could
    // otherwise give its inode number to another file.
    void expect(const FileStamp& opened);

    // Creates an empty file (mode 0600) in the target's directory that has no name and is gone when
    // it is closed. It is for content that cannot be written to the new file yet.
    FileDescriptor createScratchFile() const;

private:
    friend class ReplacementFile;
    friend void replaceWithFile(const SaveTarget& target, const path& content);
    struct State;
    std::shared_ptr<State> state_;
};

// The new content of a file. It is written to a temporary file in the same directory, and commit()
// renames that over the target, so the target's name always leads to the old content or to the new,
// whatever fails or kills the process. Destroying the object without commit() removes the temporary
// file, except in a child process that was forked meanwhile. All failures are std::system_error,
// whose message says what was being done to which file.
//
// Construct, write through file(), then commit() once. Use it from one thread at a time. It shares
// the state of its SaveTarget, which may be destroyed first.
class PLATFORM_API ReplacementFile {
public:
    // Creates the temporary file, empty and with mode 0600. If the file system supports files
    // without a name, it has none until commit(), so a process that is killed before then leaves
    // nothing behind. Elsewhere it is named ".NAME.xxxxxx.tmp".
    explicit ReplacementFile(const SaveTarget& target);
    ReplacementFile(const ReplacementFile&) = delete;
    ReplacementFile& operator=(const ReplacementFile&) = delete;
    ~ReplacementFile();

    // Write the content through this descriptor until commit(); read it as long as the object
    // lives.
    FileDescriptor& file() noexcept;

    // Removes the name of the temporary file, if it has one. Call it instead of commit(); file()
    // can still be read.
    void abandon() noexcept;

    // Puts the new file in the target's place, in this order: gives it the target's owner, mode and
    // attributes (or, if there was no file, those of any newly created file), makes it durable with
    // fsync, checks that the target has not changed, renames, and makes the rename durable.
    //
    // From the check to the rename it holds an advisory lock (flock) on the file that it replaces,
    // so the second of two savers notices what the first one did. It waits up to 10 seconds for a
    // lock that others hold. Returns the stamp of the file that is now in place.
    //
    // If any step fails, this throws, leaves the old file in place and removes the temporary file.
    // Only a failure after the rename leaves the new file in place; its message says so.
    FileStamp commit();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace fl::filesystem
