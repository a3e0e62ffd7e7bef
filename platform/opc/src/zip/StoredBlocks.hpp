#pragma once

#include <opc/Streams.hpp>

#include "platform/opc/src/zip/Deflate.hpp"

#include <cstddef>
#include <span>

namespace opc::zip {

// Writes a block of a deflate stream that holds `content`, of less than 64 KiB, as it is. It begins
// and ends at a byte boundary.
void writeStoredBlock(std::span<const std::byte> content, bool isLast, ByteSink& sink);

// Writes the content as a deflate stream of blocks that hold it as it is. In the stream there is no
// signature of an end record, a zip64 end record or a zip64 locator, even if there are some in the
// content, because a block ends within each. The bytes depend on the content only, and not on the
// library that deflates.
void writeStoredBlocks(InputStream& content, ByteSink& sink);

}  // namespace opc::zip
