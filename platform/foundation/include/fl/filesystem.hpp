#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>

#include <unistd.h>
#include <ext/stdio_filebuf.h>

#include <cerrno>
#include <fstream>
#include <locale>
#include <string>
#include <utility>

namespace fl::filesystem {

using foundation::ustring;

// A file name as the host gives it, in UTF-16; the system gets it as UTF-8. A name with an embedded
// NUL or an unpaired surrogate has no such form and names no file: exists() is false, opening it
// fails, and it is never cut at the NUL. Constructing a path does not check anything. Separators
// are "/".
class PLATFORM_API path {
public:
    path() = default;
    explicit path(ustring native) : native_(std::move(native)) {}

    // From the bytes of a name that the system has given. Throws i18n::ConversionError if they are
    // not valid UTF-8.
    static path fromBytes(const std::string& bytes);

    bool empty() const noexcept { return native_.empty(); }
    const ustring& native() const noexcept { return native_; }
    // What is before the last separator, without separators at its end: "." for a bare name, "/"
    // for a name in the root directory.
    path parent() const;
    // What is after the last separator; empty for a name that ends in one.
    ustring filename() const;

    friend bool operator==(const path&, const path&) = default;

private:
    ustring native_;
};

// Whether the system can stat the file. Symbolic links are followed. Any failure, such as a
// directory that may not be searched, counts as "does not exist".
PLATFORM_API bool exists(const path& file);

// Whether both names lead to the same existing file, through symbolic or hard links or directly.
// Throws std::system_error if the system cannot say.
PLATFORM_API bool isSameFile(const path& a, const path& b);

// `file` with the working directory before it unless it is absolute already; neither symbolic links
// nor ".." are resolved. Throws std::system_error if the working directory has been removed or its
// name is not valid UTF-8.
PLATFORM_API path absolute(const path& file);

// The absolute path of an existing file without symbolic links, "." or "..". Throws
// std::system_error if the file does not exist or that path is not valid UTF-8.
PLATFORM_API path canonical(const path& file);

namespace detail {

// `name` as a path in the system's native form. The flag asks to translate the separators of other
// systems; on this system the native separator is the host's, "/", so it changes nothing.
PLATFORM_API path make_native_form(const ustring& name, bool translateSeparators);

// The UTF-8 bytes of a name for a system call; empty if the name has no such form (see path).
PLATFORM_API std::string make_native_access_form_i18n(const path& file);
// Like make_native_access_form_i18n(), for a name that may end in separators, which are removed.
PLATFORM_API std::string make_native_access_form_with_cleanup_i18n(const ustring& name);

// For a name that the system has refused with the errno `error`, because it may be a private name
// (FileDescriptor::privateName): returns the open descriptor that the name was made from, which
// still belongs to its FileDescriptor. Returns -1, with errno set to `error`, if the name is not
// private or the descriptor is closed.
PLATFORM_API int descriptorOf(const path& refused, int error);
// Like descriptorOf(), but returns a new descriptor, which the caller closes. Both descriptors have
// one position, which this call moves to the start of the file.
PLATFORM_API int openPrivateName(const path& refused, int error);

}  // namespace detail

// A file stream of the standard library that is opened by path. It uses the classic locale, so
// bytes are read and written as they are, whatever the global locale is. Failures set the stream's
// state, as in the standard library. A stream that only reads also opens the private name of an
// open file (FileDescriptor::privateName). Open one such stream at a time, because all of them
// share the descriptor's position in the file.
template <class Stream>
class basic_file_stream : public Stream {
public:
    basic_file_stream() = default;
    basic_file_stream(const path& file, std::ios_base::openmode mode) { open(file, mode); }

    void open(const path& file, std::ios_base::openmode mode) {
        Stream::open(detail::make_native_access_form_i18n(file), mode);
        const bool mayBePrivate = !this->is_open() && (mode & std::ios_base::out) == 0;
        if (mayBePrivate) openPrivate(file, mode);
        // This comes last because openPrivate() brings a buffer with a locale of its own.
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
