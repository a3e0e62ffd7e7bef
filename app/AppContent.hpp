#pragma once

#include <opc/PartName.hpp>
#include <opc/Streams.hpp>

#include <cstdint>
#include <memory>
#include <string>

#include "app/FileName.hpp"

namespace qzapp {

// What the public readers do not offer about the code and the model of an app. All failures are
// Errors about the file.

// The code as UTF-8. For a packaged app that is its code part, for a text app the whole file as it
// stands. At most kMaxContentBytes.
std::string readCode(const FileName& file);

// The model of a packaged app, to be read once from start to end. The stream keeps the file open by
// itself. If size or checksum are wrong, reading throws before it hands out the last bytes.
std::unique_ptr<opc::InputStream> openModel(const FileName& file);

// The size of that model.
std::uint64_t modelSize(const FileName& file);

// The name of the part that holds the model of a packaged app.
opc::model::PartName modelName(const FileName& file);

}  // namespace qzapp
