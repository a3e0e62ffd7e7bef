#pragma once

#include <opc/ZipArchive.hpp>

#include <fl/filesystem.hpp>

#include <string>
#include <string_view>
#include <system_error>

namespace opc::zip {

// About one item. `fault` is the message without file and item in front.
class ItemError : public Exception {
public:
    ItemError(const fl::filesystem::path& file, const std::string& item, std::string fault);
    const std::string& fault() const noexcept { return fault_; }

private:
    std::string fault_;
};

// All messages are one line, "FILE: ITEM: what is wrong". `item` is the item's displayName().
[[noreturn]] void throwZipError(const fl::filesystem::path& file, const std::string& what);
[[noreturn]] void throwItemError(const fl::filesystem::path& file, const std::string& item,
                                 const std::string& what);

// The same for what makes a file one that is not opened.
[[noreturn]] void refuseZip(ZipRule rule, const fl::filesystem::path& file,
                            const std::string& what);
[[noreturn]] void refuseItem(ZipRule rule, const fl::filesystem::path& file,
                             const std::string& item, const std::string& what);

// What to do about a file that was damaged, or made to be understood in two ways.
inline constexpr const char* kGetAgain = "; get the file again from where it came from";

// Names of items as people and messages see them: UTF-8, from code page 437 where `isUtf8` is false
// and the bytes are not ASCII.
std::string displayName(std::string_view name, bool isUtf8);

// Runs `step`; a failure of the file system in it becomes opc::Exception about `file`.
template <class Step>
auto aboutFile(const fl::filesystem::path& file, Step step) -> decltype(step()) {
    try {
        return step();
    } catch (const std::system_error& error) {
        throwZipError(file, error.what());
    }
}

[[noreturn]] void throwAsException(const std::system_error& error);

// The same for steps that name the file themselves: those on what a save replaces.
template <class Step>
auto aboutTarget(Step step) -> decltype(step()) {
    try {
        return step();
    } catch (const std::system_error& error) {
        throwAsException(error);
    }
}

}  // namespace opc::zip
