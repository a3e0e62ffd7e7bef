#include "tools/qzhost/Module.hpp"

#include <dlfcn.h>
#include <fmt/format.h>
#include <hvarray/Array.hpp>
#include <tarvo/ClassSystem.hpp>

#include <algorithm>
#include <cstddef>
#include <exception>
#include <iterator>
#include <new>
#include <stdexcept>
#include <utility>

namespace qzhost {

namespace {

using EntryPoint = void (*)();

constexpr const char* kInitialize = "KVInitialize_libqzappserialization";
constexpr const char* kTerminate = "KVTerminate_lumenforge_kvpkg_api";

EntryPoint findEntryPoint(void* library, const char* name) {
    return reinterpret_cast<EntryPoint>(dlsym(library, name));
}

void* load(const std::filesystem::path& file) {
    // dlopen() would look up a bare name in the system's library path.
    void* const library = dlopen(std::filesystem::absolute(file).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) throw std::runtime_error(dlerror());
    return library;
}

}  // namespace

Module::Module(const std::filesystem::path& file) : file_(file), handle_(load(file)) {
    const std::string failure = initialize();
    if (failure.empty()) return;
    release();
    throw std::runtime_error(fmt::format("{}: {}", file_.string(), failure));
}

Module::~Module() {
    release();
}

// Returns what failed, as text: the exception may be of a type whose code is unloaded with the
// module.
std::string Module::initialize() {
    const EntryPoint entryPoint = findEntryPoint(handle_, kInitialize);
    if (entryPoint == nullptr) return fmt::format("expected a module that exports {}", kInitialize);
    const auto before = tarvo::namespaceNames();
    std::string failure;
    try {
        entryPoint();
    } catch (const std::bad_alloc&) {
        failure = fmt::format("{} failed: there is not enough memory", kInitialize);
    } catch (const std::exception& error) {
        failure = fmt::format("{} failed: {}", kInitialize, error.what());
    }
    const auto after = tarvo::namespaceNames();
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                        std::back_inserter(namespaces_));
    return failure;
}

void Module::release() {
    if (handle_ == nullptr) return;
    for (const std::string& name : namespaces_)
        tarvo::unregisterTarvoNamespace(name);
    if (const EntryPoint terminate = findEntryPoint(handle_, kTerminate)) terminate();
    dlclose(std::exchange(handle_, nullptr));
}

void Module::unload() {
    release();
    checkNothingLeft();
}

void Module::checkNothingLeft() const {
    const auto registered = tarvo::namespaceNames();
    const auto left = std::count_if(namespaces_.begin(), namespaces_.end(), [&](const auto& name) {
        return std::binary_search(registered.begin(), registered.end(), name);
    });
    const std::size_t objects = tarvo::boundObjectCount();
    const std::size_t arrays = matrix::liveArrayCount();
    if (left != 0 || objects != 0 || arrays != 0) {
        throw std::runtime_error(
            fmt::format("{}: left behind after unloading: namespaces {}, objects {}, arrays {}",
                        file_.string(), left, objects, arrays));
    }
    if (void* const loaded =
            dlopen(std::filesystem::absolute(file_).c_str(), RTLD_LAZY | RTLD_NOLOAD)) {
        dlclose(loaded);
        throw std::runtime_error(file_.string() + ": the library is still loaded");
    }
}

std::filesystem::path findLibrary() {
    const auto directory = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    // Where the library is installed, then where it is built.
    for (const char* const name : {QZHOST_LIBRARY_DIRECTORY, "lib"}) {
        auto file = directory.parent_path() / name / QZHOST_LIBRARY_FILE;
        if (std::filesystem::exists(file)) return file;
    }
    throw std::runtime_error(
        fmt::format("{} is not in the library directory next to {}; name it with --library",
                    QZHOST_LIBRARY_FILE, directory.string()));
}

}  // namespace qzhost
