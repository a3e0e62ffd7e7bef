#include "tools/qzapp/verbs/Listing.hpp"

#include <fmt/format.h>
#include <CLI/Option.hpp>

#include <cstddef>
#include <span>

#include "app/Error.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/Report.hpp"

namespace qzapp {

using nlohmann::ordered_json;

void addListOptions(CLI::App& command, ListOptions& options, const char* fileHelp) {
    command.add_option("FILE", options.file, fileHelp)->required()->type_name("");
    command.add_flag("--verify", options.verify, "Also read everything and check its checksums");
    command.add_flag("--json", options.json, "Print one JSON object");
}

void addFault(ordered_json& entry, const FileName& file,
              const std::function<std::unique_ptr<opc::InputStream>()>& open) {
    try {
        about(file, [&] { open()->readTo([](std::span<const std::byte>) {}); });
    } catch (const Error& e) {
        entry["error"] = e.textAbout(entry["name"].get<std::string>());
    }
}

std::string shownText(const ordered_json& value) {
    return value.is_string() ? visible(value.get<std::string>()) : value.dump();
}

std::string shownCheck(const ordered_json& entry) {
    return entry.contains("error") ? shownText(entry["error"]) : "ok";
}

int reportFaults(const FileName& file, const ordered_json& entries) {
    int status = kDone;
    for (const ordered_json& entry : entries) {
        if (!entry.contains("error")) continue;
        report(fmt::format("{}: {}: {}", file.shown, entry["name"].get<std::string>(),
                           entry["error"].get<std::string>()));
        status = kFailed;
    }
    return status;
}

}  // namespace qzapp
