#include <appserialization/AppMetadataReader.hpp>

namespace appserialization {

AppMetadataReader::AppMetadataReader() = default;
AppMetadataReader::~AppMetadataReader() = default;

}  // namespace appserialization
