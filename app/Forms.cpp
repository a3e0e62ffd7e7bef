#include "app/Forms.hpp"

#include <fmt/format.h>
#include <appserialization/Exceptions.hpp>
#include <appserialization/Functions.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <appserialization/KVPKGMetadataReader.hpp>
#include <fl/i18n.hpp>
#include <foundation/Base64.hpp>
#include <opc/Exception.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string>

#include "app/Error.hpp"
#include "app/InputFiles.hpp"

namespace qzapp {
namespace {

namespace textapp = appserialization::textapp;

// A zip file has a zero byte in its first record, and text has none. So this many bytes show which
// of the two it is, unless the zip file has more than that in front of its first record.
constexpr std::size_t kSniffedBytes = 4096;

using appserialization::hasExtension;
using appserialization::isExtensionWrongCase;
using fl::i18n::ustring_to_utf8;

std::unique_ptr<appserialization::AppMetadataReader> readerOf(const FileName& file, Form form) {
    if (form == Form::Text) {
        return std::make_unique<appserialization::KAppMetadataReader>(file.native());
    }
    return std::make_unique<appserialization::KVPKGMetadataReader>(file.native());
}

// Whether the exception in flight is about the content of the file. Call it only in a handler.
bool isAboutContent() {
    try {
        throw;
    } catch (const opc::Exception&) {
        return true;
    } catch (const appserialization::AppFileReaderGenericException&) {
        return true;
    } catch (...) {
        return false;
    }
}

// Whether a repair might find something: not in a file whose first bytes are those of another
// format.
bool mayBeZip(const FileName& file) {
    const auto family = kindOf(file).family;
    return family == opc::FileKind::Family::Zip || family == opc::FileKind::Family::Unknown;
}

// KAppMetadataReader accepts any bytes and would report an app with default metadata.
void requireTextKind(const FileName& file) {
    const auto wrong = whyNoText(kindOf(file));
    if (wrong) throw Error(file.shown, wrong->what + "; " + wrong->fix);
}

bool isWrongCase(const FileName& file) {
    return isExtensionWrongCase(file.native(), kPackagedExtension) ||
           isExtensionWrongCase(file.native(), kTextExtension);
}

// Calls `read`, and makes an Error about the file of what it throws.
template <class Read>
auto aboutScreenshot(const FileName& file, Read read) {
    return about(file, [&] {
        try {
            return read();
        } catch (const foundation::crypto::utils::Base64Error& e) {
            throw Error(
                file.shown,
                fmt::format("the screenshot in section {} is damaged: {}; save the app again, "
                            "or remove the section",
                            textapp::kThumbnailSection.name, e.what()));
        }
    });
}

}  // namespace

const char* nameOf(Form form) {
    return form == Form::Packaged ? "packaged" : "text";
}

std::string shownExtension(Form form) {
    return ustring_to_utf8(extensionOf(form));
}

foundation::ustring extensionOf(Form form) {
    return form == Form::Packaged ? kPackagedExtension : kTextExtension;
}

Form formOfContent(const fl::filesystem::FileDescriptor& content) {
    std::array<std::byte, kSniffedBytes> start;
    const auto read = std::span(start).first(content.readAt(start, 0));
    return std::ranges::find(read, std::byte{0}) == read.end() ? Form::Text : Form::Packaged;
}

Form formOf(const FileName& file) {
    if (hasExtension(file.native(), kPackagedExtension)) return Form::Packaged;
    if (hasExtension(file.native(), kTextExtension)) return Form::Text;
    if (isWrongCase(file)) {
        throw ExtensionError(file.shown, "the extension must be in lower case; rename the file",
                             ExtensionError::Fault::NotInLowerCase);
    }
    throw ExtensionError(
        file.shown,
        fmt::format("expected a name ending in \"{}\" or \"{}\"; rename the file, or use "
                    "\"qzapp parts\" for any other package",
                    shownExtension(Form::Packaged), shownExtension(Form::Text)),
        ExtensionError::Fault::OtherExtension);
}

void requireForm(const FileName& file, Form form) {
    if (formOf(file) == form) return;
    const Form found = form == Form::Packaged ? Form::Text : Form::Packaged;
    throw ExtensionError(
        file.shown,
        fmt::format("expected a {} app (\"{}\"), found a {} app; {}", nameOf(form),
                    shownExtension(form), nameOf(found),
                    form == Form::Packaged ? "\"qzapp convert\" makes a packaged app of it"
                                           : "there is nothing to convert"),
        ExtensionError::Fault::OtherExtension);
}

std::optional<WrongKind> whyNoText(const opc::FileKind& kind) {
    const std::string what = "is " + std::string(kind.name) + ", not a text app";
    if (kind.family == opc::FileKind::Family::Zip) {
        return WrongKind{what,
                         fmt::format("if it is a packaged app, give it a name that ends in \"{}\"",
                                     shownExtension(Form::Packaged))};
    }
    if (kind.family == opc::FileKind::Family::Utf16Text) return WrongKind{what, "save it as UTF-8"};
    if (kind.family != opc::FileKind::Family::Binary) return std::nullopt;
    return WrongKind{what, "choose another file"};
}

std::unique_ptr<appserialization::AppMetadataReader> openApp(const FileName& file) {
    const Form form = formOf(file);
    if (form == Form::Text) requireTextKind(file);
    bool mayBeSaved = false;
    try {
        return about(file, [&] {
            try {
                return readerOf(file, form);
            } catch (...) {
                mayBeSaved = form == Form::Packaged && isAboutContent();
                throw;
            }
        });
    } catch (const Error& e) {
        requireFile(file);  // has the better message if the file cannot be opened at all
        if (!mayBeSaved || e.isPassing() || !mayBeZip(file)) throw;
        throw Error(file.shown, e.text() + "; \"qzapp check\" shows what can be saved");
    }
}

appserialization::Screenshot readScreenshot(const FileName& file,
                                            const appserialization::AppMetadataReader& reader) {
    return aboutScreenshot(file, [&] { return reader.readScreenshotAsBytes(); });
}

appserialization::ScreenshotSize readScreenshotSize(
    const FileName& file, const appserialization::AppMetadataReader& reader) {
    return aboutScreenshot(file, [&]() -> appserialization::ScreenshotSize {
        const auto* text = dynamic_cast<const appserialization::KAppMetadataReader*>(&reader);
        if (text != nullptr) return text->readScreenshotSize();
        const auto [format, bytes] = reader.readScreenshotAsBytes();
        return {format, bytes.size()};
    });
}

}  // namespace qzapp
