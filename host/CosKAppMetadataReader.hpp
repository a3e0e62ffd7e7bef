#pragma once

#include <tarvo/COSClassInfo.hpp>
#include <tarvo/HandleClassInfo.hpp>

#include "host/KAppMetadataReaderTarvoAdapter.hpp"

namespace appserialization {

// Describes the host class KAppMetadataReader to the class system: its constructor and its methods
// readMetadata and readScreenshotAsBytes. The class system asks for the methods when it first needs
// them. If memory runs out then, defineMethods() throws foundation::core::except::BadAlloc.
class CosKAppMetadataReader final
    : public tarvo::factory::HandleClassInfo<KAppMetadataReaderTarvoAdapter, false> {
public:
    using HandleClassInfo::HandleClassInfo;
    ~CosKAppMetadataReader() override;

protected:
    void defineMethods(tarvo::MethodList& methods) const override;
};

}  // namespace appserialization
