#pragma once

namespace appserialization::registration {

// Registers the namespace "lumenforge.internal.serialization" with the host's class system. The
// class KAppMetadataReader is described only when the namespace is first used. Calling this again
// changes nothing. Throws std::bad_alloc if memory runs out.
void initializeKAppMetadataReaderTARVONamespace();

}  // namespace appserialization::registration
