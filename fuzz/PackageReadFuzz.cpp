// Opens packages and reads all that is in them, as packages and as apps.

#include <appserialization/AppFileReader.hpp>
#include <appserialization/Exceptions.hpp>
#include <opc/CorePropertiesManager.hpp>
#include <opc/Exception.hpp>
#include <opc/Package.hpp>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/MemoryFiles.hpp"
#include "fuzz/PackageProgram.hpp"
#include "fuzz/Records.hpp"

namespace {

using fuzz::attempt;
using fuzz::require;
using opc::model::Part;

constexpr std::uint64_t kCap = 1 << 20;

// Reads in pieces of any length. If an item turns out to be damaged at its end, its last piece must
// not be handed out. Content longer than the cap is cut off.
std::optional<std::string> contentOf(const Part& part, std::size_t piece) {
    return attempt<opc::Exception>([&] {
        const auto stream = part.getInputStream();
        std::string content;
        // The buffer has exactly this size, so the sanitizer notices a write behind its end.
        const auto buffer = std::make_unique_for_overwrite<std::byte[]>(piece);
        for (std::size_t count = 1; count != 0 && content.size() < kCap;) {
            count = stream->read({buffer.get(), piece});
            content.append(reinterpret_cast<const char*>(buffer.get()), count);
        }
        return content;
    });
}

// Whether one of the items with which the file was built has this name and content.
bool isBuilt(const test_support::BuiltZip& zip, const Part& part, const std::string& content) {
    return std::ranges::any_of(zip.items, [&](const test_support::BuiltItem& item) {
        const std::u16string name(item.name.begin(), item.name.end());
        return u"/" + name == part.getName().toString() &&
               (item.data.has_value() || item.content == content);
    });
}

void checkPart(const opc::model::Package& package, const Part& part,
               const fuzz::DrawnPackage* drawn) {
    require(package.getPart(part.getName()).getContentType() == part.getContentType(),
            "a part is found by its name");
    const auto content = contentOf(part, 1 << 16);
    require(part.size() >= 1024 || contentOf(part, 1) == content, "in whatever pieces it is read");
    if (!content || content->size() >= kCap) return;
    require(content->size() == part.size(), "a part has the size that it says");
    require(drawn == nullptr || drawn->isOverwritten || isBuilt(drawn->zip, part, *content),
            "content is the item's own");
}

void checkPackage(const std::u16string& file, const fuzz::DrawnPackage* drawn) {
    const opc::zippackage::ZipPhysicalPackage zip(file, true);
    opc::model::Package package(zip);
    if (fuzz::refuses<opc::Exception>([&] { package.open(opc::interfaces::OpenMode::Read); })) {
        return;
    }
    const auto parts = package.getParts();
    for (const Part& part : parts) {
        checkPart(package, part, drawn);
        const std::string folder = part.getName().key() + "/";
        require(
            std::ranges::none_of(
                parts, [&](const Part& each) { return each.getName().key().starts_with(folder); }),
            "no name derives from another");
    }
    for (const auto& each : package.getRelationships())
        fuzz::refuses<opc::Exception>([&] { package.getTarget(each).size(); });
    fuzz::refuses<opc::Exception>(
        [&] { opc::qzservices::CorePropertiesManager(package, 0).getCoreProperties(); });
}

// Expects only the exceptions for which a caller of the app reader must be prepared.
template <class Work>
auto orRefused(Work work) {
    return attempt<appserialization::AppFileReaderExceptionBase, opc::Exception, std::out_of_range>(
        work);
}

void checkApp(const std::u16string& file) {
    std::optional<appserialization::AppFileReader> reader;
    if (!orRefused([&] { return &reader.emplace(file); })) return;
    if (const auto record = orRefused([&] { return reader->getAppMetadata(); }))
        fuzz::requireComplete(*record);
    const auto code = orRefused([&] { return reader->getKORVALCodeText(); });
    orRefused([&] {
        std::vector<std::uint8_t> image;
        std::u16string format;
        reader->getAppScreenshot(image, format);
        return true;
    });
    const auto model = orRefused([&] {
        reader->copyAppDataToTempFile(fuzz::workspace().name("model"));
        return true;
    });
    require(reader->hasParts() || (!code && !model), "only an app has code and a model");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    std::optional<fuzz::DrawnPackage> drawn;
    if (!input.startsWith("PK")) drawn = fuzz::drawPackage(input);
    const auto file =
        fuzz::memory::write("app.kvpkg", drawn ? drawn->bytes : std::string(input.rest()));
    checkPackage(file, drawn ? &*drawn : nullptr);
    checkApp(file);
    require(fuzz::memory::countOpen() == 0, "no file is left open");
    return 0;
}
