#pragma once

#include <appserialization/Export.hpp>
#include <appserialization/ustring.hpp>

#include <stdexcept>
#include <string>

namespace appserialization {

// Base of what the readers throw about an app file. The message is fixed English text; the file name
// travels beside it.
class APPSERIALIZATION_API AppFileReaderExceptionBase : public std::runtime_error {
public:
    AppFileReaderExceptionBase(const ustring& fileName, const std::string& message);
    AppFileReaderExceptionBase(const AppFileReaderExceptionBase& other);
    AppFileReaderExceptionBase& operator=(const AppFileReaderExceptionBase& other);
    ~AppFileReaderExceptionBase() override;

    // The name as the caller gave it when the name itself is refused; the absolute path once the file
    // has been found.
    ustring getFileName() const;

private:
    ustring fileName_;
};

// There is no such file, or (a text app) it is no regular file or cannot be opened.
class APPSERIALIZATION_API AppFileReaderInvalidFileName : public AppFileReaderExceptionBase {
public:
    explicit AppFileReaderInvalidFileName(const ustring& fileName);
    ~AppFileReaderInvalidFileName() override;
};

// The name does not end in the extension.
class APPSERIALIZATION_API AppFileReaderInvalidFileExtension : public AppFileReaderExceptionBase {
public:
    explicit AppFileReaderInvalidFileExtension(const ustring& fileName);
    ~AppFileReaderInvalidFileExtension() override;
};

// The name ends in the extension, but not in lower case.
class APPSERIALIZATION_API AppFileReaderInvalidFileExtensionCase
    : public AppFileReaderExceptionBase {
public:
    explicit AppFileReaderInvalidFileExtensionCase(const ustring& fileName);
    ~AppFileReaderInvalidFileExtensionCase() override;
};

// The file vanished before it could be opened.
class APPSERIALIZATION_API AppFileReaderPackageNotFound : public AppFileReaderExceptionBase {
public:
    explicit AppFileReaderPackageNotFound(const ustring& fileName);
    ~AppFileReaderPackageNotFound() override;
};

// Any other failure to read an app file; the message says which.
class APPSERIALIZATION_API AppFileReaderGenericException : public AppFileReaderExceptionBase {
public:
    AppFileReaderGenericException(const ustring& fileName, const std::string& message);
    ~AppFileReaderGenericException() override;
};

namespace except {

// Ends a call from the host language with the host error that stands for `e`: a file-name exception
// keeps its own identifier, anything else becomes "LoadFailed", each with the file name. Call it only
// in a handler that is handling `e`.
[[noreturn]] APPSERIALIZATION_API void throwToKorval(const AppFileReaderExceptionBase& e);

}  // namespace except
}  // namespace appserialization
