#pragma once

#include <opc/ZipArchive.hpp>

#include <fl/filesystem.hpp>
#include <opc/Exception.hpp>

#include <string>
#include <string_view>
#include <system_error>

namespace opc::zip {

// A failure with one item of a zip file.
class ItemError : public Exception {
public:
    // The message is "FILE: ITEM: fault". `item` is the item's displayName().
    ItemError(const fl::filesystem::path& file, const std::string& item, std::string fault);
    const std::string& fault() const noexcept { return fault_; }

private:
    std::string fault_;
};

// The functions below throw errors whose message is one line, "FILE: what is wrong" or
// "FILE: ITEM: what is wrong". `item` is an item's displayName().

// Throw opc::Exception and ItemError, for a failure at any time.
[[noreturn]] void throwZipError(const fl::filesystem::path& file, const std::string& what);
[[noreturn]] void throwItemError(const fl::filesystem::path& file, const std::string& item,
                                 const std::string& what);

// Throws opc::Exception, in a forked child that would go on with a save: its parent writes the same
// new file.
[[noreturn]] void throwForked(const fl::filesystem::path& file);

// Throw ZipRefusal, for the rule that a file breaks when it is opened.
[[noreturn]] void refuseZip(ZipRule rule, const fl::filesystem::path& file,
                            const std::string& what);
[[noreturn]] void refuseItem(ZipRule rule, const fl::filesystem::path& file,
                             const std::string& item, const std::string& what);

// The remedy for a file that was damaged, or made so that readers understand it in two ways. It
// ends a message.
inline constexpr const char* kGetAgain = "; get the file again from where it came from";

// An item's name in UTF-8, for messages and people. `name` is in code page 437 if `isUtf8` is
// false. Bytes that are not UTF-8 although `isUtf8` is true become replacement characters.
std::string displayName(std::string_view name, bool isUtf8);

// Throw opc::Exception and ItemError for the std::system_error in flight, which is nested in them.
// Call them only in a handler of it.
[[noreturn]] void throwFileFailure(const fl::filesystem::path& file,
                                   const std::system_error& error);
[[noreturn]] void throwItemFailure(const fl::filesystem::path& file, const std::string& item,
                                   const std::system_error& error);
// Like throwFileFailure(), for an error that names the file itself.
[[noreturn]] void throwAsException(const std::system_error& error);

// Runs `step` and returns its result. A std::system_error from it becomes opc::Exception whose
// message names `file`.
template <class Step>
auto aboutFile(const fl::filesystem::path& file, Step step) -> decltype(step()) {
    try {
        return step();
    } catch (const std::system_error& error) {
        throwFileFailure(file, error);
    }
}

// Runs `step` and returns its result. A std::system_error from it becomes opc::Exception with the
// same message: steps of a SaveTarget or ReplacementFile name the file themselves.
template <class Step>
auto aboutTarget(Step step) -> decltype(step()) {
    try {
        return step();
    } catch (const std::system_error& error) {
        throwAsException(error);
    }
}

}  // namespace opc::zip
