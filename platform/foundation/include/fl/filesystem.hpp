#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>

#include <unistd.h>
#include <ext/stdio_filebuf.h>

#include <cerrno>
#include <fstream>
#include <ios>
#include <locale>
#include <string>
#include <utility>

namespace fl::filesystem {

using foundation::ustring;

// A file name as the host gives it, in UTF-16. The system sees it as UTF-8. A name that has no such
// form (an embedded NUL, an unpaired surrogate) names no file: it does not exist and cannot be
// opened, and is never cut short to one that can.
class PLATFORM_API path {
public:
    path() = default;
    explicit path(ustring native) : native_(std::move(native)) {}

    // From the bytes that the system uses; they must be valid UTF-8 (i18n::ConversionError).
    static path fromBytes(const std::string& bytes);

    bool empty() const noexcept { return native_.empty(); }
    const ustring& native() const noexcept { return native_; }
    // Directory part, and last component; the parent of a bare name is ".".
    path parent() const;
    ustring filename() const;

    friend bool operator==(const path&, const path&) = default;

private:
    ustring native_;
};

// False for whatever cannot be stat'ed; symbolic links are followed.
PLATFORM_API bool exists(const path& file);

// Whether both names lead to one file that exists, by links of any kind. Throws std::system_error when
// that cannot be told.
PLATFORM_API bool isSameFile(const path& a, const path& b);

// `file` from the root; neither symbolic links nor ".." are resolved. Throws std::system_error when
// there is no working directory, or its name is not valid UTF-8.
PLATFORM_API path absolute(const path& file);

// The absolute path of an existing file without symbolic links, "." or "..". Throws
// std::system_error when the file does not exist, or that path is not valid UTF-8.
PLATFORM_API path canonical(const path& file);

namespace detail {

// `name` as a path in the system's native form. Separators are "/" here; the flag, which elsewhere
// translates foreign separators, changes nothing.
PLATFORM_API path make_native_form(const ustring& name, bool translateSeparators);

// The bytes to hand to the system, and the same for a name that may carry a trailing separator.
// Empty for a name without such a form (see path).
PLATFORM_API std::string make_native_access_form_i18n(const path& file);
PLATFORM_API std::string make_native_access_form_with_cleanup_i18n(const ustring& name);

// Given a name that the system has refused with `error`: what it stands for when it is a private name
// (FileDescriptor::privateName). The first gives the descriptor that the name was made of, the second a
// new one of that file, at its start; -1, with errno set, when there is none.
PLATFORM_API int descriptorOf(const path& refused, int error);
PLATFORM_API int openPrivateName(const path& refused, int error);

}  // namespace detail

// Byte file streams opened by path; otherwise the standard library's. They read and write bytes as they
// are, in the classic locale, whatever the global one converts. One that only reads also opens
// the private name of an open file (FileDescriptor::privateName); one such stream at a time, since
// they share their position in the file.
template <class Stream>
class basic_file_stream : public Stream {
public:
    basic_file_stream() = default;
    basic_file_stream(const path& file, std::ios_base::openmode mode) { open(file, mode); }

    void open(const path& file, std::ios_base::openmode mode) {
        Stream::open(detail::make_native_access_form_i18n(file), mode);
        const bool mayBePrivate = !this->is_open() && (mode & std::ios_base::out) == 0;
        if (mayBePrivate) openPrivate(file, mode);
        // Last, because the buffer that was opened by another way brings a locale of its own.
        this->imbue(std::locale::classic());
    }

private:
    void openPrivate(const path& file, std::ios_base::openmode mode) {
        const int descriptor = detail::openPrivateName(file, errno);
        if (descriptor < 0) return;
        __gnu_cxx::stdio_filebuf<typename Stream::char_type> opened(descriptor, mode);
        if (!opened.is_open()) {
            ::close(descriptor);
            return;
        }
        *this->rdbuf() = std::move(opened);
        this->clear();
    }
};

template <class Char>
using basic_ifstream = basic_file_stream<std::basic_ifstream<Char>>;
template <class Char>
using basic_fstream = basic_file_stream<std::basic_fstream<Char>>;
using ifstream = basic_ifstream<char>;
using fstream = basic_fstream<char>;

}  // namespace fl::filesystem
