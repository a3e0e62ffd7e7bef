#pragma once

#include <foundation/Export.hpp>

#include <stdexcept>
#include <string>

namespace opc {

// Any failure of a package: its zip file, its rules, its XML, its file on disk. The message names the
// file, the part or item, the rule, and what to do where there is something to do.
class PLATFORM_API Exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~Exception() override;
};

namespace model {

// The file to open does not exist.
class PLATFORM_API PackageNotFound : public Exception {
public:
    using Exception::Exception;
    ~PackageNotFound() override;
};

}  // namespace model
}  // namespace opc
