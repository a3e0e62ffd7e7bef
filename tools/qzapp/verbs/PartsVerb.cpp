#include <fmt/chrono.h>
#include <fmt/format.h>
#include <CLI/App.hpp>
#include <fl/i18n.hpp>
#include <foundation/ustring.hpp>
#include <nlohmann/json.hpp>
#include <opc/CoreProperties.hpp>
#include <opc/CorePropertiesManager.hpp>
#include <opc/Package.hpp>
#include <opc/Relationship.hpp>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/Error.hpp"
#include "app/FileName.hpp"
#include "app/InputFiles.hpp"
#include "app/MetadataJson.hpp"
#include "app/WithPackage.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/ProgressBar.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/cli/TerminalText.hpp"
#include "tools/qzapp/verbs/Listing.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

using foundation::ustring;
using nlohmann::ordered_json;
using opc::model::Package;
using opc::model::Part;
using opc::model::Relationship;

ordered_json textOrNull(const std::optional<ustring>& text) {
    return text ? ordered_json(fl::i18n::to_display(*text)) : ordered_json();
}

ordered_json partJson(const FileName& file, const Part& part, bool verify) {
    ordered_json object = {{"name", fl::i18n::to_display(part.getName().toString())},
                           {"contentType", fl::i18n::to_display(part.getContentType().toString())},
                           {"size", part.size()},
                           {"compressedSize", part.compressedSize()}};
    if (verify) addFault(object, file, [&] { return part.getInputStream(); });
    return object;
}

ordered_json relationshipJson(const Relationship& relationship) {
    return {{"id", fl::i18n::to_display(relationship.getID())},
            {"type", fl::i18n::to_display(relationship.getType())},
            {"target", fl::i18n::to_display(relationship.getTargetURI().toString())},
            {"external", relationship.getTargetMode() == opc::model::TargetMode::External}};
}

ordered_json modifiedJson(const opc::qzservices::CoreProperties& properties) {
    const auto time = properties.getLastModifiedTime();
    return time ? ordered_json(fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", *time)) : ordered_json();
}

ordered_json propertiesJson(const opc::qzservices::CoreProperties& properties) {
    const auto info = properties.getKORVALReleaseInfo();
    const auto release =
        properties.hasKORVALRelease() ? std::optional(properties.getKORVALRelease()) : std::nullopt;
    return {{"title", textOrNull(properties.getTitle())},
            {"description", textOrNull(properties.getDescription())},
            {"creator", textOrNull(properties.getCreatedBy())},
            {"version", textOrNull(properties.getVersion())},
            {"contentType", textOrNull(properties.getContentType())},
            {"modified", modifiedJson(properties)},
            {"contentTypeFriendlyName", textOrNull(properties.getContentTypeFriendlyName())},
            {"KORVALRelease", textOrNull(release)},
            {"KORVALReleaseInfo", info ? textOrNull(info->toString()) : ordered_json()}};
}

ordered_json corePropertiesJson(const FileName& file, Package& package) {
    try {
        return about(file, [&] {
            opc::qzservices::CorePropertiesManager manager(package, 0);
            return propertiesJson(manager.getCoreProperties());
        });
    } catch (const Error& e) {
        return {{"error", e.text()}};
    }
}

ordered_json readPackage(const FileName& file, bool verify) {
    const ProgressBar progress(verify ? sizeOf(file) : 0);
    return withPackage(file, [&](Package& package) {
        ordered_json parts = ordered_json::array();
        for (const Part& part : package.getParts())
            parts.push_back(partJson(file, part, verify));
        ordered_json relationships = ordered_json::array();
        for (const Relationship& relationship : package.getRelationships()) {
            relationships.push_back(relationshipJson(relationship));
        }
        return ordered_json{{"parts", std::move(parts)},
                            {"relationships", std::move(relationships)},
                            {"coreProperties", corePropertiesJson(file, package)}};
    });
}

std::string partsTable(const ordered_json& parts, bool verify) {
    using enum Table::Align;
    using enum Table::IfNarrow;
    std::vector<Table::Column> columns = {
        {"Part"}, {"Content type", Left, GoesBelow}, {"Size", Right}, {"Compressed", Right}};
    if (verify) columns.push_back({"Check"});
    Table table(std::move(columns));
    for (const ordered_json& part : parts) {
        std::vector<std::string> row = {shownText(part["name"]), shownText(part["contentType"]),
                                        shownText(part["size"]), shownText(part["compressedSize"])};
        if (verify) row.push_back(shownCheck(part));
        table.add(std::move(row));
    }
    return table.text();
}

std::string relationshipsTable(const ordered_json& relationships) {
    Table table(
        {{"Relationship"}, {"Target"}, {"Type", Table::Align::Left, Table::IfNarrow::GoesBelow}});
    for (const ordered_json& relationship : relationships) {
        const char* mark = relationship["external"].get<bool>() ? " (external)" : "";
        table.add({shownText(relationship["id"]), shownText(relationship["target"]) + mark,
                   shownText(relationship["type"])});
    }
    return table.text();
}

std::string propertiesTable(const ordered_json& properties) {
    Table table({{"Core property"}, {"Value", Table::Align::Left, Table::IfNarrow::GoesBelow}});
    for (const auto& [name, value] : properties.items()) {
        if (!value.is_null()) table.add({name, shownText(value)});
    }
    return table.text();
}

std::string sheetFor(const ordered_json& package, bool verify) {
    return partsTable(package["parts"], verify) + "\n" +
           relationshipsTable(package["relationships"]) + "\n" +
           propertiesTable(package["coreProperties"]);
}

int parts(const ListOptions& options) {
    const FileName file = inputArgument(options.file);
    Cage().enter();
    requireFile(file);
    const ordered_json package = readPackage(file, options.verify);
    print(options.json ? jsonLine(package) : sheetFor(package, options.verify));
    int status = reportFaults(file, package["parts"]);
    const ordered_json& properties = package["coreProperties"];
    if (properties.contains("error")) {
        report(file.shown + ": " + properties["error"].get<std::string>());
        status = kFailed;
    }
    return status;
}

}  // namespace

Action declareParts(CLI::App& command) {
    const auto options = std::make_shared<ListOptions>();
    addListOptions(command, *options, "Any package, whatever its extension, or \"-\"");
    command.footer(
        "Lists the parts, the package's relationships and its core properties.\n\n"
        "Example:\n"
        "  qzapp parts --verify atlas.kvpkg");
    return [options] { return parts(*options); };
}

}  // namespace qzapp
