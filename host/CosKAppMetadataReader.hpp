#pragma once

#include <tarvo/HandleClassInfo.hpp>

#include "host/KAppMetadataReaderTarvoAdapter.hpp"

namespace appserialization {

// Describes the host class KAppMetadataReader: its constructor and its two methods.
class CosKAppMetadataReader final
    : public tarvo::factory::HandleClassInfo<KAppMetadataReaderTarvoAdapter, false> {
public:
    using HandleClassInfo::HandleClassInfo;
    ~CosKAppMetadataReader() override;

protected:
    void defineMethods(tarvo::MethodList& methods) const override;
};

}  // namespace appserialization
