#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace qzhost {

// A native module, loaded at run time, that registers classes with the class system. Owns the
// loaded library. Release all that comes from the module, such as class descriptions, before
// unload() or the destructor.
class Module {
public:
    // Loads `file` and calls its initializer. Throws std::runtime_error, with nothing left loaded,
    // if it is not such a module or its initializer fails.
    explicit Module(const std::filesystem::path& file);
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    // Unregisters and unloads the module, unless unload() has.
    ~Module();

    // Unregisters the module's namespaces and unloads it. Then throws std::runtime_error if
    // anything is left: a namespace, an object, an array, or the code.
    void unload();

private:
    std::string initialize();
    void release();
    void checkNothingLeft() const;

    std::filesystem::path file_;
    void* handle_;
    std::vector<std::string> namespaces_;
};

// The library that belongs to this program, in the library directory next to its own. Throws
// std::runtime_error if it is not there.
std::filesystem::path findLibrary();

}  // namespace qzhost
