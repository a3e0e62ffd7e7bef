#pragma once

#include <string>

#include "app/Errors.hpp"

namespace qzapp {

// Exit statuses.
inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;
inline constexpr int kWrongCommandLine = 2;
inline constexpr int kSavedUnreported = 3;

// Arguments that cannot be meant; the tool ends with kWrongCommandLine.
class UsageError : public Error {
public:
    using Error::Error;
};

// Standard output is gone: nothing more can be told there.
class OutputError : public Error {
public:
    using Error::Error;
};

// Like OutputError, after what was asked for has been saved: only the report is lost. The tool ends with
// kSavedUnreported.
class ReportError : public OutputError {
public:
    using OutputError::OutputError;
};

// Writes "qzapp: MESSAGE" on standard error, as one line whatever the message holds.
void report(const std::string& message);

}  // namespace qzapp
