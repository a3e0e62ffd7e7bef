#pragma once

#include <appserialization/Export.hpp>
#include <appserialization/ustring.hpp>

#include <stdexcept>
#include <string>

namespace appserialization {

// Base of the exceptions that readers throw about an app file. what() is English text for people;
// the derived classes fix it, so it does not name the file. getFileName() does.
//
// Readers throw each of these with an interface added by which the host carries exceptions to
// another thread (foundation::core::except::InternalException). Catch them by the types below, by
// reference.
class APPSERIALIZATION_API AppFileReaderExceptionBase : public std::runtime_error {
public:
    AppFileReaderExceptionBase(const ustring& fileName, const std::string& message);
    AppFileReaderExceptionBase(const AppFileReaderExceptionBase& other);
    AppFileReaderExceptionBase& operator=(const AppFileReaderExceptionBase& other);
    ~AppFileReaderExceptionBase() override;

    // The absolute path of the file; the name as the caller gave it if that was refused or there is
    // no such file.
    ustring getFileName() const;

private:
    ustring fileName_;
};

// There is no such file. For a text app also: it cannot be opened, or is not a regular file.
class APPSERIALIZATION_API AppFileReaderInvalidFileName : public AppFileReaderExceptionBase {
public:
    explicit AppFileReaderInvalidFileName(const ustring& fileName);
    ~AppFileReaderInvalidFileName() override;
};

// The name does not end in the extension, in whatever case.
class APPSERIALIZATION_API AppFileReaderInvalidFileExtension : public AppFileReaderExceptionBase {
public:
    explicit AppFileReaderInvalidFileExtension(const ustring& fileName);
    ~AppFileReaderInvalidFileExtension() override;
};

// The name ends in the extension, but not in lower case, as in "app.KVPKG".
class APPSERIALIZATION_API AppFileReaderInvalidFileExtensionCase
    : public AppFileReaderExceptionBase {
public:
    explicit AppFileReaderInvalidFileExtensionCase(const ustring& fileName);
    ~AppFileReaderInvalidFileExtensionCase() override;
};

// The file vanished between the check of its name and its opening.
class APPSERIALIZATION_API AppFileReaderPackageNotFound : public AppFileReaderExceptionBase {
public:
    explicit AppFileReaderPackageNotFound(const ustring& fileName);
    ~AppFileReaderPackageNotFound() override;
};

// Any other failure to read an app file; what() says which.
class APPSERIALIZATION_API AppFileReaderGenericException : public AppFileReaderExceptionBase {
public:
    AppFileReaderGenericException(const ustring& fileName, const std::string& message);
    ~AppFileReaderGenericException() override;
};

namespace except {

// Ends a call from the host language by throwing `e` as a host error (messages::HostError): each of
// the three file-name exceptions as the message with its own name, everything else as "LoadFailed".
// The argument of the message is the file name. Call this only in a handler that is handling `e`,
// because it rethrows the current exception to find out its type.
[[noreturn]] APPSERIALIZATION_API void throwToKorval(const AppFileReaderExceptionBase& e);

}  // namespace except
}  // namespace appserialization
