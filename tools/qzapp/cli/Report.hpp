#pragma once

#include <string>

#include "app/Error.hpp"

namespace qzapp {

// The exit statuses of the tool ("diff" has its own).
inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;
inline constexpr int kWrongCommandLine = 2;
inline constexpr int kSavedUnreported = 3;
// Of the verbs for which status 1 is an answer.
inline constexpr int kTrouble = 2;

// The command line is wrong. The tool ends with kWrongCommandLine.
class UsageError : public Error {
public:
    using Error::Error;
};

// Standard output cannot be written to. The tool ends with kFailed at once, whatever else there is
// to do.
class OutputError : public Error {
public:
    using Error::Error;
};

// Standard output cannot be written to, after what was asked for has been saved: only the report is
// lost. The tool ends with kSavedUnreported.
class ReportError : public OutputError {
public:
    using OutputError::OutputError;
};

// Writes "qzapp: MESSAGE" to standard error, on one line and made visible(), whatever the message
// holds.
void report(const std::string& message);

}  // namespace qzapp
