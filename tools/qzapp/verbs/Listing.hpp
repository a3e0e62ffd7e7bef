#pragma once

#include <CLI/App.hpp>
#include <nlohmann/json.hpp>
#include <opc/Streams.hpp>

#include <functional>
#include <memory>
#include <string>

#include "app/FileName.hpp"

namespace qzapp {

// What "parts" and "items" share. Both make their listing as JSON first; the tables for people come
// from that.

struct ListOptions {
    std::string file;
    bool verify = false;
    bool json = false;
};
void addListOptions(CLI::App& command, ListOptions& options, const char* fileHelp);

// Opens a stream and reads it to its end, which checks size and checksum. If that fails, adds the
// message to `entry` as "error".
void addFault(nlohmann::ordered_json& entry, const FileName& file,
              const std::function<std::unique_ptr<opc::InputStream>()>& open);

// A value as the cell of a table.
std::string shownText(const nlohmann::ordered_json& value);
// The error of an entry, or "ok", as the cell of a table.
std::string shownCheck(const nlohmann::ordered_json& entry);

// Reports each entry that has an error on standard error. Returns kFailed if there is one,
// otherwise kDone.
int reportFaults(const FileName& file, const nlohmann::ordered_json& entries);

}  // namespace qzapp
