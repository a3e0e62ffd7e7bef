#include <appserialization/Export.hpp>

#include "host/Registration.hpp"

// What the host looks up by name when it loads and unloads the library.
extern "C" {

APPSERIALIZATION_API void KVInitialize_libqzappserialization() {
    appserialization::registration::initializeKAppMetadataReaderTARVONamespace();
}

// The registration is the host's to take back: it knows when no object is in use any more.
APPSERIALIZATION_API void KVTerminate_lumenforge_kvpkg_api() {}

}  // extern "C"
