#pragma once

#include <fl/FileDescriptor.hpp>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/FileName.hpp"
#include "app/PrivateFolder.hpp"

namespace qzapp {

// The package that a verb makes: a file that the user names, or "-", standard output. For standard
// output the package is made in a private folder for temporary files and sent when it is whole, so
// that a verb that fails has sent nothing. Use it in this order: construct, requireFree(), make(),
// deliver().
class NewPackage {
public:
    enum class Kind { App, Any };  // the name of an app must end in ".kvpkg"

    // Throws UsageError if the name is not allowed, and Error if standard output is a terminal or
    // its package cannot be kept.
    NewPackage(const std::string& value, Kind kind);
    NewPackage(const NewPackage&) = delete;
    NewPackage& operator=(const NewPackage&) = delete;

    // What messages call it.
    const std::string& shown() const noexcept { return file_.shown; }

    // Throws as requireAbsent() and requireNoInput() do, or requireOutputIsNoInput().
    void requireFree(bool force, const std::vector<FileName>& inputs) const;

    // Calls `write` with the name of the file that it is to make.
    void make(const std::function<void(const FileName& file)>& write) const;

    // Sends the package if it goes to standard output, and then puts the notes on standard error;
    // otherwise prints the report, which holds the notes, too. Throws OutputError, or ReportError
    // if only printing has failed. Takes no memory before it prints: have the texts ready before
    // make().
    void deliver(std::string_view report, std::string_view notes = "") const;

private:
    bool isStandardOutput() const noexcept { return folder_.has_value(); }

    fl::filesystem::FileDescriptor place_;
    std::optional<PrivateFolder> folder_;  // in place_; only for standard output
    FileName file_;
};

}  // namespace qzapp
