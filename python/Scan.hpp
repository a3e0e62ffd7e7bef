#pragma once

#include <appserialization/AppMetadata.hpp>
#include <foundation/ProcessMark.hpp>

#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "app/AppFolder.hpp"
#include "app/Error.hpp"
#include "app/Forms.hpp"

namespace qzapp::python {

// What a file in a folder is: an app with its metadata, or something that could not be read.
struct Scanned {
    std::string name;
    std::optional<Form> form = {};
    std::optional<appserialization::AppMetadata> metadata = {};
    std::optional<Error> error = {};
};

// All apps below a folder, read on all cores, some at a time. Runs without the interpreter's lock.
class Scan {
public:
    // A folder by the name that is shown and by its absolute one, since the working directory may
    // change meanwhile. Throws Error if it cannot be listed. `threads` bounds how many files are
    // read at a time; 0 leaves that to foundation::threads::limit().
    Scan(const std::string& shown, const std::string& absolute, std::size_t threads);

    // The next of them, in the order of names: at least one, and none only at the end. Throws Error
    // in a forked child, since a thread of its parent may have been in here. Returns fewer once
    // `mayGoOn`, which is called on this thread, returns false.
    std::vector<Scanned> next(const std::function<bool()>& mayGoOn);

private:
    std::string shownName(const std::string& name) const;
    std::vector<Scanned> readSome(const std::function<bool()>& mayGoOn);

    std::size_t threads_;
    std::string shown_, absolute_;  // of the folder
    foundation::ProcessMark process_;
    std::mutex mutex_;
    AppsBelow found_;
    std::size_t file_ = 0;  // the next one
};

}  // namespace qzapp::python
