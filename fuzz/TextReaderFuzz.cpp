// The text-app reader on files of any bytes: it always returns a complete record, and refuses nothing but
// a screenshot that is not Base64.

#include <appserialization/KAppMetadataReader.hpp>
#include <foundation/Base64.hpp>

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/Fuzzing.hpp"
#include "fuzz/MemoryFiles.hpp"
#include "fuzz/Records.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const appserialization::KAppMetadataReader reader(fuzz::memory::write("input.k", bytes));
    const auto metadata = reader.readMetadata();
    fuzz::requireComplete(metadata);
    const auto mode = *metadata.getScreenshotMode();
    fuzz::require(mode == u"auto" || mode == u"manual" || mode == u"none",
                  "the screenshot mode is one of three");
    const auto read = [&] {
        return fuzz::attempt<foundation::crypto::utils::Base64Error>(
            [&] { return reader.readScreenshotAsBytes(); });
    };
    fuzz::require(read() == read(), "a screenshot reads the same again");
    return 0;
}
