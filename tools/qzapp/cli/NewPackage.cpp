#include "tools/qzapp/cli/NewPackage.hpp"

#include <fmt/format.h>
#include <fl/filesystem.hpp>

#include <functional>
#include <string>
#include <string_view>
#include <system_error>

#include "app/Error.hpp"
#include "app/ScratchFile.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/ErrorStream.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/cli/TerminalText.hpp"

namespace qzapp {
NewPackage::NewPackage(const std::string& value, Kind kind) {
    if (value != kStandardStream) {
        file_ = kind == Kind::App ? newPackageArgument(value) : fileArgument(value);
        return;
    }
    if (outputIsTerminal()) {
        throw Error(kStandardOutput,
                    "a package is not text for a terminal; send it to a file or a program");
    }
    place_ = openScratchPlace(kStandardOutput);
    try {
        folder_.emplace(place_, 0700);
    } catch (const std::system_error& e) {
        throwNotKept(kStandardOutput, e.code().message());
    }
    file_ = about({kStandardOutput, {}}, [&] {
        return FileName{kStandardOutput,
                        fl::filesystem::path::fromBytes(
                            fmt::format("/proc/self/fd/{}/package{}", folder_->descriptor().get(),
                                        kind == Kind::App ? ".kvpkg" : "")),
                        nullptr, true};
    });
}

void NewPackage::requireFree(bool force, const std::vector<FileName>& inputs) const {
    if (isStandardOutput()) return requireOutputIsNoInput(inputs);
    requireAbsent(file_, force);
    requireNoInput(file_, inputs);
}

void NewPackage::make(const std::function<void(const FileName&)>& write) const {
    try {
        write(file_);
    } catch (const Error& e) {
        // Not standard output is full, but the folder in which the package is made.
        if (isStandardOutput() && e.isPassing() &&
            e.what() == std::string(kStandardOutput) + ": " + e.text()) {
            throwNotKept(kStandardOutput, e.text());
        }
        throw;
    }
}

void NewPackage::deliver(std::string_view report, std::string_view notes) const {
    if (!isStandardOutput()) return printReport(file_, report);
    printFile(file_);
    if (!writeMessage(notes))
        throw ReportError(kStandardOutput,
                          "has the file; only the report on standard error is missing");
}

}  // namespace qzapp
