#pragma once

#include <foundation/Export.hpp>

#include <fl/FileDescriptor.hpp>
#include <fl/filesystem.hpp>

#include <memory>
#include <optional>
#include <string>

namespace fl::filesystem {

class SaveTarget;

// What a save, and whoever opens a file again, says when the file is not the one that it was.
inline constexpr const char* kChangedMeanwhile =
    "someone else created, changed or removed the file in the meantime; it is left as it is now "
    "(open it again, or save under another name)";

// Puts the file `content`, which is on the target's own file system and was written by others, in the
// target's place, under the rules of ReplacementFile::commit(). On failure the content stays.
PLATFORM_API void replaceWithFile(const SaveTarget& target, const path& content);

// What a save is going to replace: the file at the end of any symbolic links (a link keeps pointing;
// a dangling one gets its target), held open, by its directory and its name in it, and as it was when
// it was looked at. A relative name counts from the working directory of the construction. A save
// fails when the name, or a link on the way, leads elsewhere by then.
class PLATFORM_API SaveTarget {
public:
    // Throws std::system_error when the directory cannot be opened, the target is not a regular
    // file, or it exists and may not be written.
    explicit SaveTarget(const path& file);
    SaveTarget(SaveTarget&&) noexcept;
    SaveTarget& operator=(SaveTarget&&) noexcept;
    ~SaveTarget();

    // The resolved target; and its stamp, nullopt when there was no such file.
    const path& resolved() const noexcept;
    const std::optional<FileStamp>& stamp() const noexcept;

    // Takes `opened`, which the caller opened as this target, made the new content from and keeps
    // open, as the file that a save may replace.
    void expect(const FileStamp& opened);

    // An empty file in the target's directory that has no name and vanishes when it is closed: for
    // content that has no place in the new file yet.
    FileDescriptor createScratchFile() const;

private:
    friend class ReplacementFile;
    friend void replaceWithFile(const SaveTarget& target, const path& content);
    struct State;
    std::shared_ptr<State> state_;
};

// The new content of a file, written beside it and put in its place by commit() so that the name
// always holds the old bytes or the new, whatever fails or kills the process. Destroying it without
// commit() removes what was written, but not in a process that was forked since. Failures are
// std::system_error; their message says what was being done to which file.
class PLATFORM_API ReplacementFile {
public:
    // Creates an empty temporary file (mode 0600) in the target's directory, without a name where
    // the file system allows that.
    explicit ReplacementFile(const SaveTarget& target);
    ReplacementFile(const ReplacementFile&) = delete;
    ReplacementFile& operator=(const ReplacementFile&) = delete;
    ~ReplacementFile();

    // To write the content through until commit(), and to read it as long as this object lives.
    FileDescriptor& file() noexcept;

    // Gives up putting the file in place, and its name if it has one. file() still reads.
    void abandon() noexcept;

    // Gives the new file the target's owner, mode and extended attributes (a new file gets the
    // umask's mode), makes it durable, checks that the target is still what it was, renames over it
    // and makes the rename durable. From that check to the rename it holds an advisory lock (flock)
    // on the file that it replaces, so that of two savers the second sees what the first did; it
    // waits 10 seconds for one that others hold. Returns the stamp of the file now in place.
    // Throws, with the old file in place and nothing left behind, when any of this fails; only a
    // failure of the last step leaves the new file in place, and its message says so.
    FileStamp commit();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace fl::filesystem
