#include "tools/qzapp/catalogue/ReadEntry.hpp"

#include <appserialization/AppMetadata.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <appserialization/ustring.hpp>
#include <fl/FileDescriptor.hpp>
#include <fl/i18n.hpp>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include "app/AppFolder.hpp"
#include "app/Error.hpp"
#include "app/FieldValues.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/Sha256.hpp"
#include "app/check/Checks.hpp"
#include "app/check/Findings.hpp"

namespace qzapp {
namespace {

using appserialization::AppMetadata;
using fl::i18n::to_display;

constexpr std::int64_t kNanoseconds = 1'000'000'000;
// The clock by which the system dates files advances in steps of up to so much. Some file systems
// only keep whole seconds, or even ones.
constexpr std::int64_t kFineStep = kNanoseconds / 50, kCoarseStep = 2 * kNanoseconds;

void addMetadata(const AppMetadata& record, AppRow& app) {
    for (std::size_t i = 0; i < kTextFields; ++i) {
        const FieldValue value = valueOf(record, textFields()[i]);
        app.texts.at(i) = to_display(std::get<ustring>(value));
    }
    for (std::size_t i = 0; i < kListFields; ++i) {
        const FieldValue value = valueOf(record, listFields()[i]);
        for (const ustring& item : std::get<List>(value))
            app.lists.at(i).push_back(to_display(item));
    }
}

void addScreenshot(const FileName& file, const appserialization::AppMetadataReader& reader,
                   Pictures& pictures, Entry& entry) {
    AppRow& app = *entry.app;
    try {
        const auto [format, bytes] = readScreenshot(file, reader);
        if (format.empty() && bytes.empty()) return;
        app.screenshotFormat = to_display(format);
        app.screenshotBytes = static_cast<std::int64_t>(bytes.size());
        const std::string_view image(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        app.screenshotSha256 = sha256Hex(image);
        app.picture = pictures.scaled(*app.screenshotSha256, image);
    } catch (const Error& e) {
        // A damaged screenshot is among the findings.
        if (e.isPassing()) throw;
    }
}

void addFindings(const Findings& findings, AppRow& app) {
    const auto count = [&](Severity severity) {
        return static_cast<std::int64_t>(findings.count(severity));
    };
    app.errors = count(Severity::Error);
    app.warnings = count(Severity::Warning);
    app.notes = count(Severity::Note);
    for (const Finding& finding : findings.sorted()) {
        app.findings.push_back({nameOf(finding.rule->severity), finding.rule->id, finding.part,
                                finding.text, finding.fix,
                                static_cast<std::int64_t>(finding.count)});
    }
}

std::string hashOf(const FileName& file) {
    Sha256 sum;
    readToEnd(file, [&](std::span<const std::byte> bytes) { sum.update(bytes); });
    return sum.hex();
}

void addContent(const FileName& file, Pictures& pictures, Entry& entry) {
    AppRow& app = *entry.app;
    std::unique_ptr<appserialization::AppMetadataReader> reader;
    std::exception_ptr refusal;  // thrown when the findings are noted
    try {
        reader = openApp(file);
    } catch (const Error&) {
        refusal = std::current_exception();
    }
    addFindings(checkFile(file, reader != nullptr), app);
    app.form = nameOf(formOf(file));
    if (refusal) std::rethrow_exception(refusal);
    app.sha256 = hashOf(file);
    about(file, [&] { addMetadata(reader->readMetadata(), app); });
    addScreenshot(file, *reader, pictures, entry);
}

// A file that was written to a moment ago may be written to again without a difference in its time.
bool maySoonChangeUnseen(const Stamp& stamp) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::int64_t step = stamp.modified % kNanoseconds == 0 ? kCoarseStep : kFineStep;
    return stamp.modified > std::chrono::nanoseconds(now).count() - step;
}

void readInto(Entry& entry, Pictures& pictures) {
    const auto file = openListed(entry.path);
    if (!file) {
        entry.app.reset();
        return;
    }
    const auto& held = file->held->stamp;
    entry.stamp = {static_cast<std::int64_t>(held.size),
                   nanosecondsOf(held.modifiedSeconds, held.modifiedNanoseconds),
                   static_cast<std::int64_t>(held.inode)};
    entry.again |= maySoonChangeUnseen(entry.stamp);
    addContent(*file, pictures, entry);
    requireUnchanged(*file);
}

}  // namespace

Entry readEntry(const FoundFile& found, Pictures& pictures) {
    Entry entry{found.path, found.stamp, maySoonChangeUnseen(found.stamp), false, AppRow()};
    entry.app->file = to_display(fl::i18n::utf8_to_ustring(found.path));
    try {
        readInto(entry, pictures);
    } catch (const Error& e) {
        if (e.code() == std::errc::no_such_file_or_directory) {  // gone since it was listed
            entry.app.reset();
            return entry;
        }
        AppRow& app = *entry.app;
        app.texts = {};
        app.lists = {};
        app.screenshotFormat.reset();
        app.screenshotBytes = 0;
        app.screenshotSha256.reset();
        app.picture.reset();
        app.errors = std::max<std::int64_t>(app.errors, 1);
        app.error = e.text();
        entry.isUnread = e.isPassing();
        entry.again |= entry.isUnread;
    }
    if (entry.app) cutToLimits(*entry.app);
    return entry;
}

}  // namespace qzapp
