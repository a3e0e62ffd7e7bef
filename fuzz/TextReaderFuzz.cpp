// The text-app reader on files of any bytes: it answers with a complete record, and refuses nothing but
// a screenshot that is not base64.

#include <appserialization/KAppMetadataReader.hpp>
#include <foundation/Base64.hpp>

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/Fuzzing.hpp"

namespace {

using appserialization::KAppMetadataReader;
using fuzz::require;

bool isMode(const std::u16string& mode) {
    return mode == u"auto" || mode == u"manual" || mode == u"none";
}

void checkMetadata(const KAppMetadataReader& reader) {
    namespace fields = appserialization::appmetadata;
    const auto metadata = reader.readMetadata();
    for (const auto& [field, value] : metadata.toMap()) {
        const bool present = value.which() == 0
                                 ? boost::get<fields::OptionalString>(value).has_value()
                                 : boost::get<fields::OptionalStringList>(value).has_value();
        require(present, "every field is present");
    }
    require(isMode(*metadata.getScreenshotMode()), "the screenshot mode is one of three");
}

void checkScreenshot(const KAppMetadataReader& reader) {
    try {
        const auto [format, bytes] = reader.readScreenshotAsBytes();
        const auto again = reader.readScreenshotAsBytes();
        require(again.first == format && again.second == bytes,
                "a screenshot reads the same again");
    } catch (const foundation::crypto::utils::Base64Error&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const KAppMetadataReader reader(fuzz::workspace().write("input.k", bytes));
    checkMetadata(reader);
    checkScreenshot(reader);
    return 0;
}
