#pragma once

#include <fl/FileDescriptor.hpp>

#include <cstddef>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "app/FileName.hpp"
#include "app/PrivateFolder.hpp"

namespace qzapp {

// Files that come into a folder together or not at all. The folder is opened once, and no link in it is
// followed. Until commit() the files are in a private folder: one that becomes the new folder, with
// those above it that are missing too, or one in the folder that is there. Whatever fails, and whatever
// signal comes, leaves everything as it was; all failures are Errors.
class OutputFolder {
public:
    enum class Links { Follow, Refuse };

    // Settles whether each of the files may be written: one that is there only by `force`, and then it
    // must be a regular file. `links` says what becomes of a folder whose own name is a link.
    OutputFolder(const FileName& folder, Links links, const std::vector<std::string>& names,
                 bool force);
    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;

    // What messages call a file of this folder.
    FileName nameOf(const std::string& name) const;
    // Makes one of the files, to be filled.
    fl::filesystem::FileDescriptor& create(const std::string& name);

    // Puts all files, which are filled, in their places. A file that replaces one gets its owner, mode
    // and attributes. Signals wait meanwhile.
    void commit();

private:
    struct File {
        std::string name;
        std::optional<fl::filesystem::FileStamp> old;  // what it replaces
        fl::filesystem::FileDescriptor content = {};
        std::string keptName = {};  // of what it has replaced, in the private folder
    };

    void openPlace(Links links);
    void settle(File& file, bool force) const;
    void makeFolders();
    const fl::filesystem::FileDescriptor& folderOfFiles() const;
    void finish(File& file) const;
    void renameFolder();
    void moveFiles();
    void moveIn(File& file) const;
    void exchange(File& file) const;
    void takeBack(std::size_t count, const std::exception& reason);
    bool takeBack(const File& file) const noexcept;
    [[noreturn]] void throwChanged(const std::string& name) const;

    FileName folder_;
    fl::filesystem::FileDescriptor
        place_;                         // the folder, or the one that its missing ones come into
    std::vector<std::string> missing_;  // outermost first
    std::vector<File> files_;
    std::optional<PrivateFolder> private_;
    std::vector<fl::filesystem::FileDescriptor> inner_;  // the missing ones but the first
};

}  // namespace qzapp
