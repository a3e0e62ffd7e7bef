#include "tools/qzapp/Listing.hpp"

#include <CLI/Option.hpp>

#include <cstddef>
#include <vector>

#include "tools/qzapp/Display.hpp"
#include "tools/qzapp/Errors.hpp"

namespace qzapp {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t kReadBytes = std::size_t{256} << 10;

void readToEnd(opc::InputStream& stream) {
    std::vector<std::byte> buffer(kReadBytes);
    while (stream.read(buffer) != 0) {
    }
}

}  // namespace

void addListOptions(CLI::App& command, ListOptions& options, const char* fileHelp) {
    command.add_option("FILE", options.file, fileHelp)->required()->type_name("");
    command.add_flag("--verify", options.verify, "Read everything to its end and check it");
    command.add_flag("--json", options.json, "One JSON object");
}

void addFault(ordered_json& entry, const FileName& file,
              const std::function<std::unique_ptr<opc::InputStream>()>& open) {
    try {
        about(file, [&] { readToEnd(*open()); });
    } catch (const Error& e) {
        entry["error"] = e.text();
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
        const auto name = entry["name"].get<std::string>();
        const auto error = entry["error"].get<std::string>();
        // The library names the part, as a rule.
        const std::string where = error.starts_with(name) ? "" : name + ": ";
        report(file.shown + ": " + where + error);
        status = kFailed;
    }
    return status;
}

}  // namespace qzapp
