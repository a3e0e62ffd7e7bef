#include "tools/qzhost/ReadCommand.hpp"

#include <fmt/format.h>
#include <fl/ReplacementFile.hpp>
#include <fl/filesystem.hpp>
#include <hvarray/Array.hpp>
#include <hvarray/Inspection.hpp>
#include <tarvo/COSMethodInfo.hpp>
#include <tarvo/ClassSystem.hpp>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>

#include "tools/qzhost/StructText.hpp"

namespace qzhost {

namespace {

using foundation::ustring;
using matrix::ArrayPtr;

constexpr const char* kReaderClass = "lumenforge.internal.serialization.KAppMetadataReader";

// Calls the constructor and the methods of the registered class, as host code would.
class Reader {
public:
    explicit Reader(const ustring& file) {
        namespace api = matrix::detail::noninlined::hv_array_api;
        const ArrayPtr name = matrix::adopt(api::hvCreateString_UTF16(file));
        const hvArray_tag* const inputs[] = {name.get()};
        handle_ = tarvo::construct(kReaderClass, 1, inputs).at(0);
    }

    ArrayPtr metadata() const { return call("readMetadata", 1).at(0); }

    // The bytes and the format.
    std::pair<ArrayPtr, ArrayPtr> screenshot() const {
        const tarvo::Outputs outputs = call("readScreenshotAsBytes", 2);
        return {outputs.at(0), outputs.at(1)};
    }

private:
    tarvo::Outputs call(const char* method, std::size_t outputCount) const {
        const hvArray_tag* const inputs[] = {handle_.get()};
        return tarvo::callMethod(kReaderClass, method, outputCount, inputs);
    }

    ArrayPtr handle_;
};

// The new file with these bytes, which has its name only when it is committed. Never replaces the
// app, whatever links lead to it.
std::unique_ptr<fl::filesystem::ReplacementFile> newFile(const ReadOptions& options,
                                                         std::span<const std::uint8_t> bytes) {
    const fl::filesystem::path out(*options.screenshot);
    if (fl::filesystem::isSameFile(fl::filesystem::path(options.file), out)) {
        throw std::runtime_error(visible(out.native()) +
                                 ": is the app that is read; write its screenshot to another file");
    }
    const fl::filesystem::SaveTarget target(out);
    if (target.stamp() && !options.force) {
        throw std::runtime_error(visible(out.native()) +
                                 ": already exists; give --force to replace it");
    }
    auto file = std::make_unique<fl::filesystem::ReplacementFile>(target);
    file->file().writeAt(std::as_bytes(bytes), 0);
    return file;
}

std::string describeScreenshot(const hvArray_tag& bytes, const hvArray_tag& format) {
    const std::size_t size = matrix::elementCountOf(bytes);
    if (size == 0) return "  no screenshot\n";
    return fmt::format("  screenshot: {} bytes of '{}'\n", size, visible(matrix::textOf(format)));
}

}  // namespace

void readApp(const ReadOptions& options, const std::function<void(const std::string&)>& print) {
    const Reader reader(options.file);
    const ArrayPtr metadata = reader.metadata();
    const auto [bytes, format] = reader.screenshot();
    const auto screenshot = matrix::bytesOf(*bytes);
    const bool isWritten = options.screenshot && !screenshot.empty();
    const auto file = isWritten ? newFile(options, screenshot) : nullptr;
    print(options.json ? jsonText(structToJson(*metadata))
                       : displayStruct(*metadata) + "\n" + describeScreenshot(*bytes, *format));
    if (file) file->commit();
    if (options.screenshot && !isWritten) {
        fmt::print(stderr, "qzhost: {} has no screenshot; {} is not written\n",
                   visible(options.file), visible(*options.screenshot));
    }
}

}  // namespace qzhost
