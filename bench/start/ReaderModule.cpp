#include <appserialization/KAppMetadataReader.hpp>
#include <appserialization/KVPKGMetadataReader.hpp>

#include <cstdlib>
#include <string_view>

// Reads the metadata of an app, packaged or text.
extern "C" __attribute__((visibility("default"))) void run(const char* file) {
    using namespace appserialization;
    const std::string_view bytes(file);
    const ustring name(bytes.begin(), bytes.end());
    const bool isText = bytes.ends_with(".k");
    const AppMetadata metadata =
        isText ? KAppMetadataReader(name).readMetadata() : KVPKGMetadataReader(name).readMetadata();
    if (!metadata.getName()) std::abort();
}
