#include "tools/qzapp/check/CheckReport.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <optional>

#include "app/MetadataJson.hpp"
#include "app/Suggestion.hpp"
#include "tools/qzapp/check/FindingsGithub.hpp"
#include "tools/qzapp/check/FindingsSarif.hpp"
#include "tools/qzapp/check/FindingsSheet.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"

namespace qzapp {
namespace {

constexpr std::array<std::string_view, 4> kFormats = {"text", "json", "sarif", "github"};

// A report whose every file is printed by itself.
class FileByFile : public CheckReport {
public:
    explicit FileByFile(const CheckReportOptions& options) : options_(options) {}

    void show(const Answer& answer) override {
        totals_.add(static_cast<FileKind>(answer.kind));
        print(answer.text);
    }
    void fail(const std::string& file, const std::string& reason) override {
        totals_.add(FileKind::Unread);
        print(failure(file, reason));
    }
    void end() override {
        if (options_.hasTotal) print(totals_.text());
    }

protected:
    virtual std::string failure(const std::string& file, const std::string& reason) const = 0;

    bool hasNothing(const Findings& findings) const {
        const auto worst = findings.worst();
        return !worst || *worst > options_.least;
    }
    const CheckReportOptions& options() const { return options_; }

private:
    CheckReportOptions options_;
    CheckTotals totals_;
};

class TextReport : public FileByFile {
public:
    using FileByFile::FileByFile;

    std::string textOf(const FileName& file, const Findings& findings) const override {
        const bool isQuiet = options().least != Severity::Note;
        return isQuiet && hasNothing(findings) ? "" : sheetOf(file, findings, options().least);
    }

protected:
    std::string failure(const std::string&, const std::string&) const override { return ""; }
};

class JsonReport : public FileByFile {
public:
    using FileByFile::FileByFile;

    std::string textOf(const FileName& file, const Findings& findings) const override {
        const bool isQuiet = options().least != Severity::Note;
        if (isQuiet && hasNothing(findings)) return "";
        return jsonLine(toJson(file, findings, options().least));
    }

protected:
    std::string failure(const std::string& file, const std::string& reason) const override {
        return jsonLine(failureJson(file, reason));
    }
};

class GithubReport : public FileByFile {
public:
    using FileByFile::FileByFile;

    std::string textOf(const FileName& file, const Findings& findings) const override {
        return annotationsOf(file, findings, options().least);
    }

protected:
    std::string failure(const std::string& file, const std::string& reason) const override {
        return annotationOf(file, unreadFinding(reason));
    }
};

class SarifReport : public CheckReport {
public:
    explicit SarifReport(const CheckReportOptions& options) : least_(options.least) {}

    std::string textOf(const FileName& file, const Findings& findings) const override {
        return sarifResults(file.shown, findings.sorted(least_));
    }
    void show(const Answer& answer) override { print(log_.add(answer.text)); }
    void fail(const std::string& file, const std::string& reason) override {
        print(log_.add(sarifResults(file, {unreadFinding(reason)})));
    }
    void end() override {
        print(log_.end());
        if (log_.left() == 0) return;
        report(
            fmt::format("check: the SARIF log has the first {} results, as many as code scanning "
                        "takes, and lacks {}; check fewer files at a time, or leave out notes "
                        "with --quiet",
                        kMostSarifResults, log_.left()));
    }

private:
    Severity least_;
    SarifLog log_;
};

}  // namespace

CheckFormat checkFormatNamed(std::string_view name) {
    const auto found = std::ranges::find(kFormats, name);
    if (found != kFormats.end()) return static_cast<CheckFormat>(found - kFormats.begin());
    throw UsageError("--format",
                     fmt::format("unknown format \"{}\"{}", name,
                                 didYouMean(name, kFormats, "; use one of " + checkFormats())));
}

std::string checkFormats() {
    return fmt::format("{}", fmt::join(kFormats, ", "));
}

std::unique_ptr<CheckReport> makeCheckReport(CheckFormat format,
                                             const CheckReportOptions& options) {
    switch (format) {
        case CheckFormat::Json:
            return std::make_unique<JsonReport>(CheckReportOptions{options.least, false});
        case CheckFormat::Sarif:
            return std::make_unique<SarifReport>(options);
        case CheckFormat::Github:
            return std::make_unique<GithubReport>(options);
        default:
            return std::make_unique<TextReport>(options);
    }
}

}  // namespace qzapp
