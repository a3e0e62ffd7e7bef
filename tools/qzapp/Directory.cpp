#include "tools/qzapp/Directory.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "tools/qzapp/Arguments.hpp"
#include "tools/qzapp/Errors.hpp"

namespace qzapp {
namespace {

bool isDirectory(const std::string& name) {
    struct stat found {};
    return ::stat(name.c_str(), &found) == 0 && S_ISDIR(found.st_mode);
}

}  // namespace

FileName fileIn(const FileName& directory, const std::string& name) {
    const char* separator = directory.shown.ends_with('/') ? "" : "/";
    return fileArgument(directory.shown + separator + name);
}

NewDirectories::NewDirectories(const FileName& directory) {
    try {
        make(directory);
    } catch (...) {
        removeMade();
        throw;
    }
}

NewDirectories::~NewDirectories() {
    removeMade();
}

// Each prefix of the name that ends before a slash, then the whole.
void NewDirectories::make(const FileName& directory) {
    const std::string name = directory.bytes();
    for (std::size_t end = 0; end != std::string::npos;) {
        end = name.find('/', end + 1);
        const std::string part = name.substr(0, end);
        if (::mkdir(part.c_str(), 0777) == 0) {
            made_.push_back(std::make_unique<Leftover>(part));
        } else if (const int reason = errno; !isDirectory(part)) {
            throw Error(directory.shown,
                        reason == EEXIST
                            ? "is there already and is no directory; choose another with -o"
                            : "cannot be made (" + std::generic_category().message(reason) +
                                  "); choose another with -o");
        }
    }
}

void NewDirectories::keep() {
    while (!made_.empty())
        made_.pop_back();
}

void NewDirectories::removeMade() {
    while (!made_.empty()) {
        made_.back()->remove();
        made_.pop_back();
    }
}

}  // namespace qzapp
