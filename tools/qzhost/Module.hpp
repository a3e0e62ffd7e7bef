#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace qzhost {

// A native module that registers classes with the class system, loaded at run time.
class Module {
public:
    // Loads `file` and calls its initializer. Throws std::runtime_error, with nothing loaded, when it
    // is no such module or its initializer fails.
    explicit Module(const std::filesystem::path& file);
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    // Unloads it, unless that has been done.
    ~Module();

    // Takes back what the module has registered and unloads it. Throws std::runtime_error when
    // anything of it is left: a namespace, an object, an array, or its code. Nothing that comes from
    // the module, such as a class description, may be in use.
    void unload();

private:
    std::string initialize();
    void release();
    void checkNothingLeft() const;

    std::filesystem::path file_;
    void* handle_;
    std::vector<std::string> namespaces_;
};

// Where the library lies that belongs to this program: in the library directory beside its own. Throws
// std::runtime_error when it is not there.
std::filesystem::path findLibrary();

}  // namespace qzhost
