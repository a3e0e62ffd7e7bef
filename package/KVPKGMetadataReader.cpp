#include <appserialization/KVPKGMetadataReader.hpp>

#include <appserialization/Functions.hpp>

#include "package/Layout.hpp"
#include "package/PackagedMetadata.hpp"

namespace appserialization {

class __attribute__((visibility("hidden"))) KVPKGMetadataReader::KVPKGMetadataReaderImpl
    : public PackagedMetadata {
public:
    using PackagedMetadata::PackagedMetadata;
};

KVPKGMetadataReader::KVPKGMetadataReader(const ustring& fileName)
    : impl_(std::make_unique<KVPKGMetadataReaderImpl>(
          validateFilePath(fileName, KVPKGMetadataReader::getExtension()))) {}
KVPKGMetadataReader::~KVPKGMetadataReader() = default;

ustring KVPKGMetadataReader::getFileName() const {
    return impl_->getFileName();
}

ustring KVPKGMetadataReader::getExtension() const {
    return layout::kExtension;
}

AppMetadata KVPKGMetadataReader::readMetadata() const {
    return impl_->getAppMetadata();
}

Screenshot KVPKGMetadataReader::readScreenshotAsBytes() const {
    Screenshot screenshot;
    impl_->getAppScreenshot(screenshot.second, screenshot.first);
    return screenshot;
}

}  // namespace appserialization
