#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/qzapp/Cleanup.hpp"
#include "tools/qzapp/FileName.hpp"

namespace qzapp {

FileName fileIn(const FileName& directory, const std::string& name);

// Makes a directory, and those above it, where they do not exist. Until keep() is called, those that
// were made are removed again with this object or by a signal. Failures are Errors about it.
class NewDirectories {
public:
    explicit NewDirectories(const FileName& directory);
    ~NewDirectories();
    NewDirectories(const NewDirectories&) = delete;
    NewDirectories& operator=(const NewDirectories&) = delete;

    void keep();

private:
    void make(const FileName& directory);
    void removeMade();

    std::vector<std::unique_ptr<Leftover>> made_;  // outermost first
};

}  // namespace qzapp
