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
#include <filesystem>
#include <functional>
#include <stdexcept>

#include "tests/support/TemporaryDirectory.hpp"

namespace hostile {

namespace {

using appserialization::AppMetadataReader;
using fl::i18n::to_display;

constexpr std::size_t kLongestShown = 80;

template <class Type>
bool is(const std::exception& error) {
    return dynamic_cast<const Type*>(&error) != nullptr;
}

std::string typeOf(const std::exception& error) {
    if (is<opc::model::PackageNotFound>(error)) return "PackageNotFound";
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

// What `read` returns, or throws as "Type: message".
std::string told(const std::u16string& file, const std::function<std::string()>& read) {
    try {
        return read();
    } catch (const std::exception& error) {
        return typeOf(error) + ": " + replaced(error.what(), to_display(file), "FILE");
    }
}

std::string shown(std::string text) {
    for (const char control : {'\0', '\n', '\r', '\x1B'})
        text = replaced(std::move(text), std::string(1, control), "~");
    if (text.size() <= kLongestShown) return text;
    return std::to_string(text.size()) + " bytes";
}

struct Shown : boost::static_visitor<std::string> {
    std::string operator()(const appserialization::appmetadata::OptionalString& text) const {
        return text ? shown(to_display(*text)) : "(none)";
    }
    std::string operator()(const appserialization::appmetadata::OptionalStringList& list) const {
        if (!list) return "(none)";
        if (list->size() > 9) return std::to_string(list->size()) + " items";
        std::string all;
        for (const auto& item : *list)
            all += "[" + shown(to_display(item)) + "]";
        return all;
    }
};

// Reads it to its end; damage is found before the last byte is handed out, and remembered.
std::string readStream(opc::InputStream& stream, std::uint64_t size) {
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
    return "";
}

void addMetadata(Outcome& outcome, const std::u16string& file,
                 const std::function<std::unique_ptr<AppMetadataReader>()>& open) {
    using namespace appserialization::appmetadata;
    const std::string failure = told(file, [&] {
        for (const auto& [field, value] : open()->readMetadata().toMap()) {
            outcome.push_back(kFieldNames.at(static_cast<std::size_t>(field)) + std::string(": ") +
                              boost::apply_visitor(Shown(), value));
        }
        return "";
    });
    if (!failure.empty()) outcome.push_back("metadata: " + failure);
    outcome.push_back("screenshot: " + told(file, [&] {
                          const auto [format, bytes] = open()->readScreenshotAsBytes();
                          return shown(to_display(format)) + " " +
                                 shown(std::string(bytes.begin(), bytes.end()));
                      }));
}

// Parts are named with their types, items only when they are damaged.
void addParts(Outcome& outcome, const opc::model::Package& package, const std::u16string& file) {
    for (const auto& part : package.getParts()) {
        outcome.push_back("part " + shown(to_display(part.getName().toString())) + ": " +
                          to_display(part.getContentType().toString()));
    }
    const auto archive = opc::zip::ZipArchive::open(fl::filesystem::path(file));
    for (const auto& item : archive->items()) {
        const std::string failure =
            told(file, [&] { return readStream(*archive->read(item), item.size); });
        if (!failure.empty())
            outcome.push_back("item " + shown(item.displayName()) + ": " + failure);
    }
}

Outcome readPackage(const std::u16string& file, const std::u16string& scratch) {
    Outcome outcome;
    const std::string failure = told(file, [&] {
        const opc::zippackage::ZipPhysicalPackage zip(file, true);
        opc::model::Package package(zip);
        package.open(opc::interfaces::OpenMode::Read);
        addParts(outcome, package, file);
        return "";
    });
    if (!failure.empty()) return {"open: " + failure};
    addMetadata(outcome, file,
                [&] { return std::make_unique<appserialization::KVPKGMetadataReader>(file); });
    outcome.push_back("code: " + told(file, [&] {
                          return shown(
                              to_display(quillcode::QuillCodeFileReader(file).getKORVALCode()));
                      }));
    outcome.push_back("model: " + told(file, [&] {
                          appserialization::AppFileReader(file).copyAppDataToTempFile(scratch);
                          return shown(test_support::readFile(scratch));
                      }));
    return outcome;
}

Outcome readText(const std::u16string& file) {
    const std::string failure = told(file, [&] {
        appserialization::KAppMetadataReader{file};
        return "";
    });
    if (!failure.empty()) return {"open: " + failure};
    Outcome outcome;
    addMetadata(outcome, file,
                [&] { return std::make_unique<appserialization::KAppMetadataReader>(file); });
    return outcome;
}

}  // namespace

Outcome readEverything(const std::u16string& file, const std::u16string& scratch) {
    return file.ends_with(u".k") ? readText(file) : readPackage(file, scratch);
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
