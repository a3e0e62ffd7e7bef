#include "host/CosKAppMetadataReader.hpp"

#include <tarvo/DataTypes.hpp>
#include <tarvo/InternedString.hpp>
#include <tarvo/TarvoMethod.hpp>

#include <memory>
#include <utility>

#include "host/HostErrors.hpp"
#include "host/ReadKAppScreenshotAsBytesMI.hpp"

namespace appserialization {

namespace {

using tarvo::factory::MethodAttributes;
using tarvo::factory::TarvoMethod;
using tarvo::internal::makeInterned;
using Adapter = KAppMetadataReaderTarvoAdapter;

// The constructor takes the name of a text app file and returns a handle to a new reader.
std::unique_ptr<TarvoMethod> describeConstructor(const tarvo::COSClassInfo& info) {
    const auto attributes = MethodAttributes::forConstructor();
    auto signature = tarvo::factory::createSignatureImpl(
        attributes, {makeInterned("TarvoFactoryString scalar")}, {makeInterned("handle")});
    return std::make_unique<TarvoMethod>(info.getFullName(), attributes, std::move(signature),
                                         tarvo::factory::newOperator<Adapter>(info));
}

std::unique_ptr<TarvoMethod> describeReadMetadata() {
    const auto attributes = MethodAttributes::forMethod();
    auto signature = tarvo::factory::createSignatureImpl(attributes, {}, {makeInterned("any")});
    return std::make_unique<TarvoMethod>(makeInterned("readMetadata"), attributes,
                                         std::move(signature),
                                         tarvo::factory::memberFunction(&Adapter::readMetadata));
}

}  // namespace

CosKAppMetadataReader::~CosKAppMetadataReader() = default;

void CosKAppMetadataReader::defineMethods(tarvo::MethodList& methods) const {
    host::withHostBadAlloc([&] {
        tarvo::factory::detail::initStringDataTypes();
        methods.push_back(describeConstructor(*this));
        methods.push_back(describeReadMetadata());
        methods.push_back(std::make_unique<ReadKAppScreenshotAsBytesMI>());
    });
}

}  // namespace appserialization
