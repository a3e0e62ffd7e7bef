#include <fmt/format.h>
#include <CLI/App.hpp>
#include <nlohmann/json.hpp>
#include <opc/ZipArchive.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "app/Error.hpp"
#include "app/FileName.hpp"
#include "app/InputFiles.hpp"
#include "app/MetadataJson.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/ProgressBar.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/cli/TerminalText.hpp"
#include "tools/qzapp/verbs/Listing.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

using nlohmann::ordered_json;
using opc::zip::ZipArchive;
using opc::zip::ZipItem;

ordered_json itemJson(const FileName& file, const ZipArchive& archive, const ZipItem& item,
                      bool verify) {
    ordered_json object = {
        {"name", item.displayName()},
        {"method", item.method == opc::zip::Method::Stored ? "stored" : "deflated"},
        {"size", item.size},
        {"compressedSize", item.compressedSize},
        {"crc32", item.crc32},
        {"offset", item.headerOffset}};
    if (verify) addFault(object, file, [&] { return archive.read(item); });
    return object;
}

ordered_json readItems(const FileName& file, bool verify) {
    const ProgressBar progress(verify ? sizeOf(file) : 0);
    return about(file, [&] {
        const auto archive = ZipArchive::open(file.path);
        ordered_json items = ordered_json::array();
        for (const ZipItem& item : archive->items()) {
            items.push_back(itemJson(file, *archive, item, verify));
        }
        return items;
    });
}

std::string itemsTable(const ordered_json& items, bool verify) {
    using enum Table::Align;
    std::vector<Table::Column> columns = {{"Item"},        {"Method"},
                                          {"Size", Right}, {"Compressed", Right},
                                          {"CRC-32"},      {"Offset", Right}};
    if (verify) columns.push_back({"Check"});
    Table table(std::move(columns));
    for (const ordered_json& item : items) {
        std::vector<std::string> row = {
            shownText(item["name"]),
            shownText(item["method"]),
            shownText(item["size"]),
            shownText(item["compressedSize"]),
            fmt::format("{:08x}", item["crc32"].get<std::uint32_t>()),
            shownText(item["offset"]),
        };
        if (verify) row.push_back(shownCheck(item));
        table.add(std::move(row));
    }
    return table.text();
}

int items(const ListOptions& options) {
    const FileName file = inputArgument(options.file);
    Cage().enter();
    requireFile(file);
    const ordered_json entries = readItems(file, options.verify);
    print(options.json ? jsonLine({{"items", entries}}) : itemsTable(entries, options.verify));
    return reportFaults(file, entries);
}

}  // namespace

Action declareItems(CLI::App& command) {
    const auto options = std::make_shared<ListOptions>();
    addListOptions(command, *options, "Any zip file, package or not, or \"-\"");
    command.footer(
        "Lists the items in the order of their data in the file.\n\n"
        "Example:\n"
        "  qzapp items --verify download.zip");
    return [options] { return items(*options); };
}

}  // namespace qzapp
