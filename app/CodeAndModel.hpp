#pragma once

#include <opc/Package.hpp>
#include <opc/Streams.hpp>

#include <functional>
#include <memory>
#include <span>
#include <string>

#include "app/FileName.hpp"

namespace qzapp {

// What a reader of either form does not hand out as it is needed here. All failures are Errors about
// the file.

// The code as UTF-8: the code part of a packaged app, all of a text app as it stands.
std::string readCode(const FileName& file);

// The model of a packaged app, to be read once. Bytes that fail the checksum are never the last ones
// handed out.
std::unique_ptr<opc::InputStream> openModel(const FileName& file);

// The name of the part that holds the model of a packaged app.
opc::model::PartName modelName(const FileName& file);

using TakeBytes = std::function<void(std::span<const std::byte>)>;
// Hands out a stream, or a file, piece by piece to its end.
void readToEnd(opc::InputStream& stream, const TakeBytes& take);
void readToEnd(const FileName& file, const TakeBytes& take);

}  // namespace qzapp
