#pragma once

#include <CLI/App.hpp>
#include <nlohmann/json.hpp>
#include <opc/Streams.hpp>

#include <functional>
#include <memory>
#include <string>

#include "app/FileName.hpp"

namespace qzapp {

// What "parts" and "items" share. A listing is made as JSON, and tables for people from that.

struct ListOptions {
    std::string file;
    bool verify = false;
    bool json = false;
};
void addListOptions(CLI::App& command, ListOptions& options, const char* fileHelp);

// Reads a stream to its end, which checks size and checksum, and adds what is wrong, if anything, to
// `entry` as "error".
void addFault(nlohmann::ordered_json& entry, const FileName& file,
              const std::function<std::unique_ptr<opc::InputStream>()>& open);

// A value, and "ok" or the error of an entry, for a table.
std::string shownText(const nlohmann::ordered_json& value);
std::string shownCheck(const nlohmann::ordered_json& entry);

// Reports the entries that have an error, each with its name. Returns the exit status.
int reportFaults(const FileName& file, const nlohmann::ordered_json& entries);

}  // namespace qzapp
