// Opens packages, and reads all that is in them: as a package and as an app.

#include <appserialization/AppFileReader.hpp>
#include <appserialization/Exceptions.hpp>
#include <opc/CorePropertiesManager.hpp>
#include <opc/Exception.hpp>
#include <opc/Package.hpp>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "fuzz/Fuzzing.hpp"
#include "fuzz/PackageProgram.hpp"

namespace {

using fuzz::require;
using opc::model::Part;
using opc::model::PartName;

constexpr std::uint64_t kCap = 1 << 20;

std::optional<std::string> contentOf(const Part& part) {
    try {
        const auto bytes = readAll(part, kCap);
        return std::string(bytes.begin(), bytes.end());
    } catch (const opc::Exception&) {
        return std::nullopt;
    }
}

// By bytes, to see that no piece is handed out of an item that turns out to be damaged at its end.
std::optional<std::string> contentByBytes(const Part& part) {
    try {
        const auto stream = part.getInputStream();
        std::string content;
        std::byte byte;
        while (stream->read({&byte, 1}) != 0 && content.size() < kCap)
            content += char(byte);
        return content;
    } catch (const opc::Exception&) {
        return std::nullopt;
    }
}

bool derives(const PartName& name, const PartName& parent) {
    return name.key().starts_with(parent.key() + "/");
}

// Whether some item that the file was built with has this name and content.
bool isBuilt(const test_support::BuiltZip& zip, const Part& part, const std::string& content) {
    return std::ranges::any_of(zip.items, [&](const test_support::BuiltItem& item) {
        const std::u16string name(item.name.begin(), item.name.end());
        return u"/" + name == part.getName().toString() &&
               (item.data.has_value() || item.content == content);
    });
}

void checkPart(const opc::model::Package& package, const Part& part) {
    require(package.hasPart(part.getName()), "a part is found by its name");
    require(package.getPart(part.getName()).getContentType() == part.getContentType(),
            "and is the same then");
    const auto content = contentOf(part);
    if (part.size() < 1024) {
        require(contentByBytes(part) == content, "in whatever pieces it is read");
    }
    if (content) require(content->size() == part.size(), "a part has the size that it says");
}

void checkPackage(const std::u16string& file, const fuzz::DrawnPackage* drawn) {
    const opc::zippackage::ZipPhysicalPackage zip(file, true);
    opc::model::Package package(zip);
    if (fuzz::refuses<opc::Exception>([&] { package.open(opc::interfaces::OpenMode::Read); })) {
        return;
    }
    const auto parts = package.getParts();
    for (const Part& part : parts) {
        checkPart(package, part);
        for (const Part& other : parts)
            require(!derives(part.getName(), other.getName()), "no name derives from another");
        if (drawn == nullptr || drawn->isOverwritten) continue;
        const auto content = contentOf(part);
        require(!content || isBuilt(drawn->zip, part, *content), "content is the item's own");
    }
    for (const auto& each : package.getRelationships()) {
        fuzz::refuses<opc::Exception>([&] { package.getTarget(each).size(); });
    }
    fuzz::refuses<opc::Exception>(
        [&] { opc::qzservices::CorePropertiesManager(package, 0).getCoreProperties(); });
}

// ---- As an app

// What a caller of the app reader has to reckon with.
template <class Work>
auto orRefused(Work work) -> std::optional<decltype(work())> {
    try {
        return work();
    } catch (const appserialization::AppFileReaderExceptionBase&) {
    } catch (const opc::Exception&) {
    } catch (const std::out_of_range&) {
    }
    return std::nullopt;
}

void checkMetadata(const appserialization::AppFileReader& reader) {
    namespace fields = appserialization::appmetadata;
    const auto record = orRefused([&] { return reader.getAppMetadata(); });
    const auto again = orRefused([&] { return reader.getAppMetadata(); });
    require(record.has_value() == again.has_value(), "metadata is read again, or refused again");
    if (!record) return;
    require(record->toMap() == again->toMap(), "metadata reads the same again");
    for (const auto& [field, value] : record->toMap()) {
        const bool isPresent = value.which() == 0
                                   ? boost::get<fields::OptionalString>(value).has_value()
                                   : boost::get<fields::OptionalStringList>(value).has_value();
        require(isPresent, "every field is present");
    }
}

void checkApp(const std::u16string& file) {
    std::optional<appserialization::AppFileReader> reader;
    if (!orRefused([&] { return &reader.emplace(file); })) return;
    checkMetadata(*reader);
    const auto code = orRefused([&] { return reader->getKORVALCodeText(); });
    require(!code || reader->hasParts(), "only an app has code");
    orRefused([&] {
        std::vector<std::uint8_t> image;
        std::u16string format;
        reader->getAppScreenshot(image, format);
        return true;
    });
    const auto model = fuzz::workspace().name("model");
    const bool isCopied = orRefused([&] {
                              reader->copyAppDataToTempFile(model);
                              return true;
                          }).has_value();
    require(!isCopied || reader->hasParts(), "only an app has a model");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    std::optional<fuzz::DrawnPackage> drawn;
    if (!input.startsWith("PK")) drawn = fuzz::drawPackage(input);
    const auto file =
        fuzz::workspace().write("app.kvpkg", drawn ? drawn->bytes : std::string(input.rest()));
    checkPackage(file, drawn ? &*drawn : nullptr);
    checkApp(file);
    return 0;
}
