// The metadata part: reads it through the DOM and by a walk over the elements, compares, and writes
// it.

#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <appserialization/Exceptions.hpp>
#include <fl/i18n.hpp>
#include <opc/Exception.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "fuzz/MemoryFiles.hpp"
#include "fuzz/Records.hpp"
#include "platform/opc/src/xml/XmlReader.hpp"
#include "tests/support/AppPackage.hpp"

namespace {

using appserialization::AppFileReader;
using appserialization::AppMetadata;
using fuzz::attempt;
using fuzz::require;
using Field = appserialization::appmetadata::MetadataFieldEnum;
namespace xml = opc::xml;

constexpr std::pair<const char*, Field> kTexts[] = {
    {"description", Field::Description},
    {"KVPKGVersion", Field::KVPKGVersion},
    {"screenshotMode", Field::ScreenshotMode},
    {"uuid", Field::Uuid},
    {"AppType", Field::AppType},
};

// The texts of the root's children by name. If several have the same name, the first counts.
class Walk final : public xml::Handler {
public:
    void start(const xml::StartTag& tag) override {
        if (++depth_ != 2) return;
        const auto [child, isFirst] = texts.try_emplace(std::string(tag.name().local));
        text_ = isFirst ? &child->second : nullptr;
    }
    void end() override { --depth_; }
    void text(std::string_view characters) override {
        if (depth_ == 2 && text_ != nullptr) *text_ += characters;
    }

    std::map<std::string, std::string> texts;

private:
    int depth_ = 0;
    std::string* text_ = nullptr;
};

void compare(const AppMetadata& record, const Walk& walk) {
    for (const auto& [name, field] : kTexts) {
        const auto expected = walk.texts.find(name);
        if (expected == walk.texts.end()) continue;
        fuzz::visitTexts(record.getFieldValue(field), [&](const auto& text) {
            require(fl::i18n::ustring_to_utf8(text) == expected->second,
                    "a text is that of the first element of its name");
        });
    }
}

std::optional<AppMetadata> read(const std::u16string& app) {
    return attempt<opc::Exception>([&] { return AppFileReader(app).getAppMetadata(); });
}

void writeBack(const std::u16string& app, const AppMetadata& record) {
    appserialization::AppFileWriter writer(app, false);
    writer.setAppMetadata(record);
    writer.close();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto app = fuzz::memory::name("app.kvpkg");
    const std::string document(reinterpret_cast<const char*>(data), size);
    static const auto good = test_support::goodPackage();
    const auto bytes =
        test_support::AppPackage(good).with(u"/metadata/appMetadata.xml", document).bytes();
    fuzz::memory::write("app.kvpkg", bytes);
    // The bytes of a stored document may turn the file into another zip file. PackageReadFuzz tests
    // that.
    using Refusal = appserialization::AppFileReaderExceptionBase;
    if (fuzz::refuses<Refusal>([] { AppFileReader reader(app); })) return -1;

    Walk walk;
    const bool isRefused =
        fuzz::refuses<opc::Exception>([&] { xml::read(document, "file", walk); });
    const auto record = read(app);
    require(record.has_value() != isRefused, "both readers refuse the same documents");
    if (isRefused) {
        require(fuzz::refuses<opc::Exception>([] { writeBack(app, AppMetadata()); }),
                "a part that cannot be read is not replaced");
        require(fuzz::memory::bytes("app.kvpkg") == bytes, "a refused edit leaves the file");
        return 0;
    }
    fuzz::requireComplete(*record);
    compare(*record, walk);
    writeBack(app, *record);
    const auto again = read(app);
    require(again.has_value(), "what is written can be read");
    for (const auto& [field, value] : record->toMap()) {
        if (field != Field::KORVALRelease)
            require(again->getFieldValue(field) == value, "what is written reads back");
    }
    return 0;
}
