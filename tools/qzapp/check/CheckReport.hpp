#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "app/FileName.hpp"
#include "app/check/Findings.hpp"
#include "tools/qzapp/cli/ForEachApp.hpp"

namespace qzapp {

// How findings are printed: for people, for programs, for code scanning (SARIF 2.1.0), and as
// annotations of GitHub Actions.
enum class CheckFormat { Text, Json, Sarif, Github };

// The format of this name. Throws UsageError, as about the option --format, if there is none.
CheckFormat checkFormatNamed(std::string_view name);
// The names of all formats, for help.
std::string checkFormats();

// What else the report depends on.
struct CheckReportOptions {
    // Less severe findings are left out, and files that have no others.
    Severity least = Severity::Note;
    bool hasTotal = false;  // if a person is to read it, how many files had what comes last
};

// Prints what was found in the files. Only textOf() may be called on several threads; the others
// print, on one thread, in the order of the files.
class CheckReport {
public:
    virtual ~CheckReport() = default;
    CheckReport(const CheckReport&) = delete;
    CheckReport& operator=(const CheckReport&) = delete;

    // The text of an answer for show(); empty if there is nothing to be said.
    virtual std::string textOf(const FileName& file, const Findings& findings) const = 0;
    virtual void show(const Answer& answer) = 0;
    // About a file that could not be read; the message about it was already written.
    virtual void fail(const std::string& file, const std::string& reason) = 0;
    // After the last file.
    virtual void end() = 0;

protected:
    CheckReport() = default;
};

std::unique_ptr<CheckReport> makeCheckReport(CheckFormat format, const CheckReportOptions& options);

}  // namespace qzapp
