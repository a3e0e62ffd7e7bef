// Metadata of a small text app, next to the regular expressions that define it.

#include "bench/BenchFiles.hpp"
#include "bench/Cases.hpp"

#include <appserialization/KAppMetadataReader.hpp>
#include <appserialization/MetadataToStructConverter.hpp>
#include <hvarray/Array.hpp>

#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

// The metadata of a text app of ordinary size.

namespace {

using namespace bench;
using appserialization::ustring;

constexpr std::size_t kCodeLines = 170;  // the app has 200 lines with its appendix

const std::string& smallApp() {
    static const std::string app = [] {
        std::string text;
        for (std::size_t i = 0; i < kCodeLines; ++i)
            text += "    T(i, j) = T(i, j) + dt * lambda * laplacian(T, i, j);  % one step\n";
        return text +
               "%[app:appDetails]\n%{\n<Name>Heat field</Name>\n<Author>Zo\xC3\xAB</Author>\n"
               "<Version>2.1</Version>\n<Summary>Heat in a plate</Summary>\n"
               "<Description>Shows how heat spreads</Description>\n%}\n\n"
               "%[app:internalData]\n%{\n<AppId>5b1c1c0e-8f0f-4c43-9a63-2f0d6f3f7f11</AppId>\n"
               "<AppType>Standard</AppType>\n"
               "<MinimumSupportedKORVALRelease>R2025a</MinimumSupportedKORVALRelease>\n"
               "<KORVALRelease>R2026b</KORVALRelease>\n"
               "<RequiredProducts>\n<Product>Base</Product>\n<Product>Solver</Product>\n"
               "</RequiredProducts>\n<UserComponents>\n<Component>Dial</Component>\n"
               "</UserComponents>\n<ImageRelativePaths>\n<Path>logo.png</Path>\n"
               "</ImageRelativePaths>\n%}\n\n"
               "%[app:thumbnail]\n%{\n<Thumbnail autoCapture='false'></Thumbnail>\n%}\n";
    }();
    return app;
}

void readToStruct(benchmark::State& state) {
    const std::filesystem::path file = folder() / "metadata.k";
    std::ofstream(file) << smallApp();
    const ustring name = text(file);
    measureEach(state, 1, [&] {
        const std::array<std::size_t, 2> scalar = {1, 1};
        const auto result = matrix::adopt(
            matrix::detail::do_create_struct(scalar, appserialization::appmetadata::kFieldNames));
        appserialization::MetadataToStructConverter().convertAppMetadataToStruct(
            appserialization::KAppMetadataReader(name).readMetadata(), result.get());
    });
}

// --- the same lookups by the standard library's regular expressions, compiled beforehand ---------

std::regex elementExpression(const std::string& name) {
    return std::regex("<" + name + "[\\s\\S]*?>([\\s\\S]*?)</" + name + ">");
}

struct SectionExpressions {
    std::regex section;
    std::vector<std::regex> parts;
};

SectionExpressions sectionExpressions(const std::string& name,
                                      const std::vector<std::string>& elements) {
    SectionExpressions made{std::regex("%\\[" + name + "\\][\\s\\S]*?\\{([\\s\\S]*?)%\\}"), {}};
    for (const std::string& element : elements)
        made.parts.push_back(elementExpression(element));
    return made;
}

std::vector<SectionExpressions> expressions() {
    std::vector<SectionExpressions> all = {
        sectionExpressions("app:appDetails",
                           {"Name", "Author", "Version", "Summary", "Description"}),
        sectionExpressions("app:internalData",
                           {"AppId", "AppType", "MinimumSupportedKORVALRelease", "KORVALRelease",
                            "RequiredProducts", "UserComponents", "ImageRelativePaths", "Product",
                            "Component", "Path"}),
        sectionExpressions("app:thumbnail", {"Thumbnail"})};
    all.back().parts.emplace_back(
        "<Thumbnail[\\s\\S]*?autoCapture[\\s\\S]*?=[\\s\\S]*?'(.*?)'"
        "[\\s\\S]*?>");
    return all;
}

void match(benchmark::State& state) {
    const auto all = expressions();
    measureEach(state, 1, [&] {
        for (const SectionExpressions& wanted : all) {
            std::smatch section, part;
            if (!std::regex_search(smallApp(), section, wanted.section)) {
                return state.SkipWithError("no section");
            }
            const std::string body = section[1].str();
            for (const std::regex& expression : wanted.parts) {
                if (!std::regex_search(body, part, expression)) state.SkipWithError("no part");
                benchmark::DoNotOptimize(part[1].str());
            }
        }
    });
}

void registerAll() {
    Case("metadata of a 200-line .k, to struct", readToStruct).against("std::regex", 0.05, match);
}

const bool registered = (registerAll(), true);

}  // namespace
