#include <appserialization/Export.hpp>

#include "host/Registration.hpp"

// The functions that the host looks up by name when it loads and unloads the library.
extern "C" {

APPSERIALIZATION_API void KVInitialize_libqzappserialization() {
    appserialization::registration::initializeKAppMetadataReaderTARVONamespace();
}

// Does nothing. The host unregisters the namespace itself, because only the host knows when no
// object is in use any more.
APPSERIALIZATION_API void KVTerminate_lumenforge_kvpkg_api() {}

}  // extern "C"
