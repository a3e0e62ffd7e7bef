#pragma once

#include <fl/FileDescriptor.hpp>
#include <fl/ReplacementFile.hpp>

#include <cstdint>
#include <optional>
#include <string_view>

#include "app/FileName.hpp"
#include "app/PrivateFolder.hpp"

namespace qzapp {

// The making of a file in several steps that count as one: the steps work on a file in a private
// folder beside the target, and commit() puts it in the target's place. A transaction that ends
// without commit(), by an exception or by a signal, leaves the target as it was and nothing beside
// it. Failures are Errors about the target.
class Transaction {
public:
    // The content of the target is for steps that save anew, and never write into the working file:
    // where the file system can, it is the target's own, under a second name.
    enum class Start { Empty, ContentOfTarget };

    Transaction(const FileName& target, Start start);
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    // What will be replaced, behind all links.
    const fl::filesystem::path& resolvedTarget() const noexcept { return saveTarget_->resolved(); }
    // To work on; messages about it show the target's name.
    const FileName& workingFile() const noexcept { return working_; }

    // Fills a working file that was empty at the start.
    void write(std::string_view bytes, std::uint64_t offset);

    // Fails, with the target as it is, when another program has changed it since the start.
    void commit();

private:
    void createFolder();
    std::string nameOfFolder(const std::string& parent) const;
    void takeContentOfTarget();
    void createWorkingFile();
    bool linkWorkingFile() const;

    FileName target_;
    std::optional<fl::filesystem::SaveTarget> saveTarget_;
    FileName working_;
    fl::filesystem::FileDescriptor directory_;
    // All that the steps leave behind when the process is killed is in one place.
    std::optional<PrivateFolder> folder_;
    std::string workingName_;  // in the folder
    // The target as it was, held so that no other file gets its number meanwhile.
    fl::filesystem::FileDescriptor source_;
    fl::filesystem::FileDescriptor file_;
};

}  // namespace qzapp
