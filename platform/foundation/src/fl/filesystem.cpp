#include <fl/filesystem.hpp>

#include <fl/FileDescriptor.hpp>
#include <fl/Retry.hpp>
#include <fl/SystemCalls.hpp>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <system_error>

namespace fl::filesystem {

namespace {

constexpr char16_t kSeparator = u'/';

// Returns nullopt, with errno set, if the file cannot be stat'ed.
std::optional<struct stat> statOf(const path& file) {
    const std::string bytes = detail::make_native_access_form_i18n(file);
    struct stat status {};
    errno = ENOENT;
    if (bytes.empty() || retryInterrupted([&] {
                             return systemCalls().fstatat(AT_FDCWD, bytes.c_str(), &status, 0);
                         }) != 0) {
        const int descriptor = detail::descriptorOf(file, errno);
        if (descriptor < 0) return std::nullopt;
        if (retryInterrupted([&] { return systemCalls().fstat(descriptor, &status); }) < 0)
            return std::nullopt;
    }
    return status;
}

// Like statOf(), but returns nullopt only if there is certainly no such file, and throws otherwise.
std::optional<struct stat> knownStatOf(const path& file) {
    const auto status = statOf(file);
    if (!status && errno != ENOENT && errno != ENOTDIR) {
        throwSystemError(errno, foundation::shown(file) + ": cannot stat");
    }
    return status;
}

// `name` without the separators at its end. A name that consists of separators keeps one: the root.
foundation::ustring_view withoutTrailingSeparators(foundation::ustring_view name) {
    const std::size_t last = name.find_last_not_of(kSeparator);
    if (last == name.npos) return name.substr(0, 1);
    return name.substr(0, last + 1);
}

// Converts the path with which the system has answered. `action` starts the message if it failed.
path fromSystem(const std::filesystem::path& answer, const std::error_code& error,
                const std::string& action) {
    if (error) throw std::system_error(error, action);
    try {
        return path::fromBytes(answer.native());
    } catch (const i18n::ConversionError&) {
        const auto notText = std::make_error_code(std::errc::illegal_byte_sequence);
        throw std::system_error(notText, action + ": \"" + answer.native() +
                                             "\" is not valid UTF-8; rename the directory");
    }
}

}  // namespace

path path::fromBytes(const std::string& bytes) {
    return path(i18n::utf8_to_ustring_strict(bytes));
}

path path::parent() const {
    const std::size_t separator = native_.rfind(kSeparator);
    if (separator == ustring::npos) return path(u".");
    return path(ustring(withoutTrailingSeparators({native_.data(), separator + 1})));
}

ustring path::filename() const {
    return native_.substr(native_.rfind(kSeparator) + 1);
}

bool exists(const path& file) {
    return statOf(file).has_value();
}

std::optional<FileStamp> findStamp(const path& file) {
    const auto status = knownStatOf(file);
    if (!status) return std::nullopt;
    return stampOf(*status);
}

bool isSameFile(const path& a, const path& b) {
    const auto first = findStamp(a);
    const auto second = findStamp(b);
    return first && second && first->device == second->device && first->inode == second->inode;
}

path absolute(const path& file) {
    if (file.native().starts_with(kSeparator)) return file;
    std::error_code error;
    const auto current = std::filesystem::current_path(error);
    ustring name = fromSystem(current, error, "cannot get the working directory").native();
    if (!name.ends_with(kSeparator)) name += kSeparator;
    return path(name + file.native());
}

path canonical(const path& file) {
    std::error_code error;
    const auto resolved =
        std::filesystem::canonical(detail::make_native_access_form_i18n(file), error);
    return fromSystem(resolved, error, "cannot resolve " + foundation::shown(file));
}

namespace detail {

path make_native_form(const ustring& name, bool /*translateSeparators*/) {
    return path(name);
}

std::string make_native_access_form_i18n(const path& file) {
    const ustring& name = file.native();
    if (name.find(u'\0') != ustring::npos) return {};
    if (i18n::find_unpaired_surrogate(name) != ustring::npos) return {};
    return i18n::ustring_to_utf8(name);
}

std::string make_native_access_form_with_cleanup_i18n(const ustring& name) {
    return make_native_access_form_i18n(path(ustring(withoutTrailingSeparators(name))));
}

}  // namespace detail

}  // namespace fl::filesystem
