#pragma once

#include <fl/FileDescriptor.hpp>

#include <cstddef>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "app/FileName.hpp"
#include "app/PrivateFolder.hpp"
#include "tools/qzapp/cli/Cage.hpp"

namespace qzapp {

// Writes several files into a folder, all or none. Construct it, create() and fill each file, then
// commit(). The folder is opened once, and no link in it is followed. Until commit() the files are
// in a private folder. If the output folder does not exist, the private folder becomes it (or the
// outermost of several missing folders); otherwise it is inside the output folder, and commit()
// renames file by file. After a failure or a signal before commit() returns, everything is as it
// was; docs/reliability.md has the exceptions. All failures are Errors.
class OutputFolder {
public:
    enum class Links { Follow, Refuse };

    // Opens the folder, or prepares it if it does not exist. `links` says whether `folder` itself
    // may be a symbolic link.
    OutputFolder(const FileName& folder, Links links);
    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;

    // Allows in a cage what this object does later: everything in a folder that exists, otherwise
    // everything in the private folder, and beside that only to rename it.
    void allowIn(Cage& cage) const;

    // Says, once, which files there will be, and checks that each may be written: if it exists,
    // only with `force`, and only if it is a regular file that may be written to.
    void expect(const std::vector<std::string>& names, bool force);

    // The name of a file of this folder, for messages.
    FileName nameOf(const std::string& name) const;
    // Creates one of the expected files, empty. This object keeps it open.
    fl::filesystem::FileDescriptor& create(const std::string& name);

    // Makes all files durable and puts them in place. Each must have been created. A file that
    // replaces another one gets its owner, mode and attributes. Signals are blocked meanwhile.
    void commit();

private:
    struct File {
        std::string name;
        std::optional<fl::filesystem::FileStamp> old;  // of the file that it replaces
        fl::filesystem::FileDescriptor content = {};
        std::string keptName = {};  // name of the replaced file in the private folder
    };

    void openPlace(Links links);
    void settle(File& file, bool force) const;
    void makeFolders();
    const fl::filesystem::FileDescriptor& folderOfFiles() const;
    void finish(File& file) const;
    void renameFolder();
    void requireOwnFolder() const;
    void moveFiles();
    void moveIn(File& file) const;
    void exchange(File& file) const;
    void takeBack(std::size_t count, const std::exception& reason);
    bool takeBack(const File& file) const noexcept;
    [[noreturn]] void throwChanged(const std::string& name) const;

    FileName folder_;
    // The output folder or, if that is missing, the innermost folder of its path that exists.
    fl::filesystem::FileDescriptor place_;
    std::vector<std::string> missing_;  // the missing folders, outermost first
    std::vector<File> files_;
    std::optional<PrivateFolder> private_;
    std::vector<fl::filesystem::FileDescriptor> inner_;  // the missing folders except the first
};

}  // namespace qzapp
