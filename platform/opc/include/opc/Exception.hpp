#pragma once

#include <foundation/Export.hpp>

#include <stdexcept>
#include <string>

namespace opc {

// Any failure of a package: of its zip file, its rules, its XML or its file on disk. The message is
// one line of UTF-8 that names the file, the part or item, what is wrong and, where there is one,
// the remedy. Apart from it, only std::bad_alloc leaves this library, and what a function's
// comment names. If the file system failed, and the file may be fine, its std::system_error is
// nested in the exception (std::nested_exception).
class PLATFORM_API Exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~Exception() override;
};

namespace model {

// The file of a package that is to be opened does not exist.
class PLATFORM_API PackageNotFound : public Exception {
public:
    using Exception::Exception;
    ~PackageNotFound() override;
};

}  // namespace model
}  // namespace opc
