#include <appserialization/Exceptions.hpp>

namespace appserialization {

namespace {

constexpr const char* kInvalidFileName = "Not a valid KVPKG filename";
// For an extension in the wrong case as well; only the types of the two exceptions differ.
constexpr const char* kInvalidExtension = "Extension must be '.kvpkg'";
// The blank at the end is part of the text, which callers compare.
constexpr const char* kPackageNotFound = "Cannot find package to open ";

}  // namespace

AppFileReaderExceptionBase::AppFileReaderExceptionBase(const ustring& fileName,
                                                       const std::string& message)
    : std::runtime_error(message), fileName_(fileName) {}
AppFileReaderExceptionBase::AppFileReaderExceptionBase(const AppFileReaderExceptionBase& other) =
    default;
AppFileReaderExceptionBase& AppFileReaderExceptionBase::operator=(
    const AppFileReaderExceptionBase& other) = default;
AppFileReaderExceptionBase::~AppFileReaderExceptionBase() = default;

ustring AppFileReaderExceptionBase::getFileName() const {
    return fileName_;
}

AppFileReaderInvalidFileName::AppFileReaderInvalidFileName(const ustring& fileName)
    : AppFileReaderExceptionBase(fileName, kInvalidFileName) {}
AppFileReaderInvalidFileName::~AppFileReaderInvalidFileName() = default;

AppFileReaderInvalidFileExtension::AppFileReaderInvalidFileExtension(const ustring& fileName)
    : AppFileReaderExceptionBase(fileName, kInvalidExtension) {}
AppFileReaderInvalidFileExtension::~AppFileReaderInvalidFileExtension() = default;

AppFileReaderInvalidFileExtensionCase::AppFileReaderInvalidFileExtensionCase(
    const ustring& fileName)
    : AppFileReaderExceptionBase(fileName, kInvalidExtension) {}
AppFileReaderInvalidFileExtensionCase::~AppFileReaderInvalidFileExtensionCase() = default;

AppFileReaderPackageNotFound::AppFileReaderPackageNotFound(const ustring& fileName)
    : AppFileReaderExceptionBase(fileName, kPackageNotFound) {}
AppFileReaderPackageNotFound::~AppFileReaderPackageNotFound() = default;

AppFileReaderGenericException::AppFileReaderGenericException(const ustring& fileName,
                                                             const std::string& message)
    : AppFileReaderExceptionBase(fileName, message) {}
AppFileReaderGenericException::~AppFileReaderGenericException() = default;

}  // namespace appserialization
