#include "tests/hostile/Outcome.hpp"

#include <appserialization/AppFileReader.hpp>
#include <appserialization/Exceptions.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <appserialization/KVPKGMetadataReader.hpp>
#include <fl/i18n.hpp>
#include <foundation/Base64.hpp>
#include <opc/Exception.hpp>
#include <opc/Package.hpp>
#include <opc/ZipArchive.hpp>
#include <quillcode/QuillCodeFileReader.hpp>

#include <algorithm>
#include <functional>
#include <optional>

#include "tests/support/TemporaryDirectory.hpp"

namespace hostile {

namespace {

using fl::i18n::to_display;

constexpr std::size_t kLongestShown = 80;

template <class Type>
bool is(const std::exception& error) {
    return dynamic_cast<const Type*>(&error) != nullptr;
}

std::string typeOf(const std::exception& error) {
    if (is<opc::model::PartTooLarge>(error)) return "PartTooLarge";
    if (is<opc::Exception>(error)) return "Exception";
    if (is<appserialization::AppFileReaderGenericException>(error)) return "GenericException";
    if (is<foundation::crypto::utils::Base64Error>(error)) return "Base64Error";
    return "std::exception";
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

std::string shown(std::string text) {
    for (const char control : {'\0', '\n', '\r', '\x1B'})
        text = replaced(std::move(text), std::string(1, control), "~");
    if (text.size() <= kLongestShown) return text;
    return std::to_string(text.size()) + " bytes";
}

std::string shown(const appserialization::appmetadata::OptionalString& text) {
    return text ? shown(to_display(*text)) : "(none)";
}

std::string shown(const appserialization::appmetadata::OptionalStringList& list) {
    if (!list) return "(none)";
    if (list->size() > 9) return std::to_string(list->size()) + " items";
    std::string all;
    for (const auto& item : *list)
        all += "[" + shown(to_display(item)) + "]";
    return all;
}

// What is read of one file.
class Report {
public:
    explicit Report(const std::u16string& file) : name_(to_display(file)) {}

    void add(const std::string& line) { lines_.push_back(line); }
    // What `read` returns, if anything, or throws as "Type: message". False when it throws.
    bool add(const std::string& what, const std::function<std::optional<std::string>()>& read) {
        try {
            if (const auto result = read()) add(what + ": " + *result);
            return true;
        } catch (const std::exception& error) {
            add(what + ": " + typeOf(error) + ": " + replaced(error.what(), name_, "FILE"));
            return false;
        }
    }
    const Outcome& lines() const { return lines_; }

private:
    std::string name_;
    Outcome lines_;
};

// Reads it to its end; damage is found before the last byte is handed out, and remembered.
std::optional<std::string> readStream(opc::InputStream& stream, std::uint64_t size) {
    std::uint64_t handedOut = 0;
    std::byte buffer[100];
    try {
        while (const std::size_t got = stream.read(buffer))
            handedOut += got;
    } catch (const opc::Exception&) {
        if (size > 0 && handedOut >= size) return "handed out before it was checked";
        try {
            stream.read(buffer);
            return "read on after a failure";
        } catch (const opc::Exception&) {
        }
        throw;
    }
    return std::nullopt;
}

template <class Reader>
void addMetadata(Report& report, const std::u16string& file) {
    using namespace appserialization::appmetadata;
    report.add("metadata", [&] {
        for (const auto& [field, value] : Reader(file).readMetadata().toMap()) {
            const auto show = [](const auto& some) { return shown(some); };
            report.add(kFieldNames.at(static_cast<std::size_t>(field)) + std::string(": ") +
                       boost::apply_visitor(show, value));
        }
        return std::nullopt;
    });
    report.add("screenshot", [&] {
        const auto [format, bytes] = Reader(file).readScreenshotAsBytes();
        return shown(to_display(format)) + " " + shown(std::string(bytes.begin(), bytes.end()));
    });
}

// Parts are named with their types, items only when they are damaged.
std::nullopt_t addParts(Report& report, const std::u16string& file) {
    const opc::zippackage::ZipPhysicalPackage zip(file, true);
    opc::model::Package package(zip);
    package.open(opc::interfaces::OpenMode::Read);
    for (const auto& part : package.getParts()) {
        report.add("part " + shown(to_display(part.getName().toString())) + ": " +
                   to_display(part.getContentType().toString()));
    }
    const auto archive = opc::zip::ZipArchive::open(fl::filesystem::path(file));
    for (const auto& item : archive->items()) {
        report.add("item " + shown(item.displayName()),
                   [&] { return readStream(*archive->read(item), item.size); });
    }
    return std::nullopt;
}

void addPackage(Report& report, const std::u16string& file, const std::u16string& scratch) {
    if (!report.add("open", [&] { return addParts(report, file); })) return;
    addMetadata<appserialization::KVPKGMetadataReader>(report, file);
    report.add("code", [&] {
        return shown(to_display(quillcode::QuillCodeFileReader(file).getKORVALCode()));
    });
    report.add("model", [&] {
        appserialization::AppFileReader(file).copyAppDataToTempFile(scratch);
        return shown(test_support::readFile(scratch));
    });
}

}  // namespace

Outcome readEverything(const std::u16string& file, const std::u16string& scratch) {
    Report report(file);
    if (file.ends_with(u".k")) {
        addMetadata<appserialization::KAppMetadataReader>(report, file);
    } else {
        addPackage(report, file, scratch);
    }
    return report.lines();
}

std::string difference(const Outcome& from, const Outcome& to) {
    if (to.size() == 1) return to.front();
    std::string lines;
    for (const auto& line : to) {
        if (std::ranges::find(from, line) == from.end()) lines += "\n" + line;
    }
    for (const auto& line : from) {
        const bool isPart = line.starts_with("part ");
        if (isPart && std::ranges::find(to, line) == to.end()) lines += "\nno " + line;
    }
    return lines.empty() ? "" : lines.substr(1);
}

}  // namespace hostile
