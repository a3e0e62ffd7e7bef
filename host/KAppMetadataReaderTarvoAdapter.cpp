#include "host/KAppMetadataReaderTarvoAdapter.hpp"

#include <appserialization/AppMetadata.hpp>
#include <appserialization/MetadataToStructConverter.hpp>
#include <hvarray/Array.hpp>

#include <array>
#include <cstddef>

#include "host/HostErrors.hpp"

namespace appserialization {

namespace {

tarvo::factory::hvArrayProxy toStruct(const AppMetadata& metadata) {
    const std::array<std::size_t, 2> scalar = {1, 1};
    auto result = matrix::adopt(matrix::detail::do_create_struct(scalar, appmetadata::kFieldNames));
    MetadataToStructConverter().convertAppMetadataToStruct(metadata, result.get());
    return result;
}

}  // namespace

KAppMetadataReaderTarvoAdapter::KAppMetadataReaderTarvoAdapter() = default;

KAppMetadataReaderTarvoAdapter::~KAppMetadataReaderTarvoAdapter() {
    tarvo::factory::full::retract(*this);
}

void KAppMetadataReaderTarvoAdapter::construct(const ustring& fileName) {
    host::withHostErrors([&] { return fileName; },
                         [&] { reader_ = std::make_unique<KAppMetadataReader>(fileName); });
}

tarvo::factory::hvArrayProxy KAppMetadataReaderTarvoAdapter::readMetadata() const {
    return host::withHostErrors([this] { return reader().getFileName(); },
                                [this] { return toStruct(reader().readMetadata()); });
}

}  // namespace appserialization
