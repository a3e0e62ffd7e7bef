#pragma once

namespace appserialization::registration {

// Registers the namespace "lumenforge.internal.serialization" with the host's class system, which
// asks for its class KAppMetadataReader on first use.
void initializeKAppMetadataReaderTARVONamespace();

}  // namespace appserialization::registration
