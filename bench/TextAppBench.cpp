// Large text apps: finding the appendix, decoding the picture.

#include "bench/BenchFiles.hpp"
#include "bench/Cases.hpp"

#include <appserialization/Functions.hpp>
#include <appserialization/KAppMetadataReader.hpp>

#include <benchmark/benchmark.h>
#include <unicode/ustring.h>
#include <foundation/Base64.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <vector>

namespace {

using namespace bench;
using appserialization::ustring;
namespace fs = std::filesystem;

// --- text apps -----------------------------------------------------------------------------------

const std::string kDetails =
    "%[app:appDetails]\n%{\n<Name>Heat field</Name>\n<Author>Zo\xC3\xAB</Author>\n"
    "<Summary>Heat in a plate</Summary>\n<Version>2.1</Version>\n%}\n\n"
    "%[app:internalData]\n%{\n<AppId>5b1c1c0e-8f0f-4c43-9a63-2f0d6f3f7f11</AppId>\n"
    "<RequiredProducts><Product>Solver</Product></RequiredProducts>\n%}\n\n";

std::string code(std::size_t size) {
    const std::string line =
        "    T(i, j) = T(i, j) + dt * lambda * laplacian(T, i, j);  % one step\n";
    std::string text;
    while (text.size() < size) {
        text += line;
    }
    return text;
}

// An appendix with a picture of `payload` characters of base64.
std::string appendix(std::size_t payload) {
    return kDetails +
           "%[app:thumbnail]\n%{\n<Thumbnail autoCapture='false'>data:image/png;base64," +
           std::string(payload / 4 * 4, 'k') + "</Thumbnail>\n%}\n";
}

fs::path textApp(const char* name, const std::string& text) {
    const fs::path file = folder() / name;
    std::ofstream(file, std::ios::binary) << text;
    return file;
}

// Large text apps that are nearly all code, or nearly all picture.
const fs::path& longCode() {
    static const fs::path file = textApp("code.k", code(64 * kMiB) + appendix(30 * kKiB));
    return file;
}
const fs::path& longPicture() {
    static const fs::path file = textApp("picture.k", code(30 * kKiB) + appendix(60 * kMiB));
    return file;
}

// --- read metadata and screenshot of a large file ------------------------------------------------

void readTextMetadata(benchmark::State& state, const fs::path& file) {
    const ustring name = text(file);
    measure(state, [&] {
        benchmark::DoNotOptimize(appserialization::KAppMetadataReader(name).readMetadata());
    });
}

void readTextApp(benchmark::State& state, const fs::path& file) {
    const ustring name = text(file);
    measure(state, [&] {
        const appserialization::KAppMetadataReader reader(name);
        benchmark::DoNotOptimize(reader.readMetadata());
        benchmark::DoNotOptimize(reader.readScreenshotAsBytes());
    });
}

// The bytes of a file, in memory that is not set to zero before.
std::unique_ptr<char[]> readFile(const fs::path& file, std::size_t size) {
    auto bytes = std::make_unique_for_overwrite<char[]>(size);
    std::ifstream(file, std::ios::binary).read(bytes.get(), static_cast<std::streamsize>(size));
    return bytes;
}

void readOnly(benchmark::State& state, const fs::path& file) {
    measure(state, [&] { benchmark::DoNotOptimize(readFile(file, fs::file_size(file))); });
}

// The least that reading a UTF-8 file into UTF-16 costs.
void readAndConvert(benchmark::State& state, const fs::path& file) {
    measure(state, [&] {
        const auto size = static_cast<std::int32_t>(fs::file_size(file));
        const auto bytes = readFile(file, static_cast<std::size_t>(size));
        const auto converted =
            std::make_unique_for_overwrite<char16_t[]>(static_cast<std::size_t>(size));
        std::int32_t length = 0;
        UErrorCode status = U_ZERO_ERROR;
        u_strFromUTF8(converted.get(), size, &length, bytes.get(), size, &status);
        if (U_FAILURE(status)) state.SkipWithError(u_errorName(status));
        benchmark::DoNotOptimize(converted);
    });
}

// --- base64 --------------------------------------------------------------------------------------

constexpr std::size_t kPayload = 64 * kMiB;

void decodeBase64(benchmark::State& state) {
    const std::string payload(kPayload, 'k');
    measure(state,
            [&] { benchmark::DoNotOptimize(foundation::crypto::utils::base64Decode(payload)); });
}

// The least that any decoder has to do: allocate memory for the result and write it once.
void copyToNewMemory(benchmark::State& state) {
    const std::string result(kPayload / 4 * 3, 'k');
    measure(state, [&] {
        benchmark::DoNotOptimize(std::vector<std::uint8_t>(result.begin(), result.end()));
    });
}

// --- find the picture of a small file ------------------------------------------------------------

void scanPicture(benchmark::State& state) {
    const std::string bytes = code(4 * kKiB) + appendix(30 * kKiB);
    const ustring app(bytes.begin(), bytes.end());
    measure(state, [&] {
        const ustring section = appserialization::getKAppAppendixSection(app, u"app:thumbnail");
        ustring picture;
        appserialization::readXMLElement(section, u"Thumbnail", picture);
        if (picture.size() < 30 * kKiB) state.SkipWithError("not found");
    });
}

// Like scanPicture(), with the standard library's regular expressions and without conversions.
void matchPicture(benchmark::State& state) {
    const std::string app = code(4 * kKiB) + appendix(30 * kKiB);
    measure(state, [&] {
        std::smatch section, picture;
        std::regex_search(app, section, std::regex(R"(%\[app:thumbnail\][\s\S]*?\{([\s\S]*?)%\})"));
        const std::string body = section[1].str();
        std::regex_search(body, picture,
                          std::regex(R"(<Thumbnail[\s\S]*?>([\s\S]*?)</Thumbnail>)"));
        if (picture[1].length() < std::ptrdiff_t{30 * kKiB}) state.SkipWithError("not found");
    });
}

// -------------------------------------------------------------------------------------------------

void registerAll() {
    Case("metadata of a .k of 64 MiB code", [](auto& state) {
        readTextMetadata(state, longCode());
    }).against("read", 1.5, [](auto& state) { readOnly(state, longCode()); });
    Case("text app with a 60 MiB picture", [](auto& state) {
        readTextApp(state, longPicture());
    }).against("read, ICU", 1, [](auto& state) { readAndConvert(state, longPicture()); });
    Case("decode 64 MiB of base64", decodeBase64)
        .against("1.5 GB/s", 1, [](auto& state) { allow(state, kPayload / 1.5e9); })
        .against("copy to new memory", 1.5, copyToNewMemory);
    Case("find a picture of 30 KiB", scanPicture).against("std::regex", 0.05, matchPicture);
}

const bool registered = (registerAll(), true);

}  // namespace
