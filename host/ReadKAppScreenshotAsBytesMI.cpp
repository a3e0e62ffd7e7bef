#include "host/ReadKAppScreenshotAsBytesMI.hpp"

#include <appserialization/AppMetadataReader.hpp>
#include <hvarray/Array.hpp>
#include <tarvo/InternedString.hpp>
#include <tarvo/SelfPointer.hpp>

#include <string_view>

#include "host/HostErrors.hpp"
#include "host/KAppMetadataReaderTarvoAdapter.hpp"

namespace appserialization {

namespace {

using tarvo::internal::makeInterned;

// The format is an output only for a caller that asks for exactly two.
tarvo::Outputs toOutputs(const Screenshot& screenshot, std::size_t outputCount) {
    const auto& [format, bytes] = screenshot;
    tarvo::Outputs outputs;
    outputs.push_back(matrix::adopt(matrix::createUint8(bytes)));
    if (outputCount == 2) {
        namespace api = matrix::detail::noninlined::hv_array_api;
        outputs.push_back(matrix::adopt(api::hvCreateString_UTF16(std::u16string_view(format))));
    }
    return outputs;
}

}  // namespace

ReadKAppScreenshotAsBytesMI::ReadKAppScreenshotAsBytesMI()
    : signature_(tarvo::COSMethodSignature::createMethodSignature(
          {makeInterned("handle")}, {makeInterned("uint8"), makeInterned("char")})) {}

ReadKAppScreenshotAsBytesMI::~ReadKAppScreenshotAsBytesMI() = default;

tarvo::InternedString ReadKAppScreenshotAsBytesMI::getName() const {
    return makeInterned("readScreenshotAsBytes");
}

const tarvo::COSMethodSignature& ReadKAppScreenshotAsBytesMI::getMethodSignature() const {
    return *signature_;
}

tarvo::Outputs ReadKAppScreenshotAsBytesMI::invoke(std::size_t outputCount,
                                                   tarvo::Inputs inputs) const {
    using tarvo::factory::impl::selfOf;
    const auto& reader = selfOf<const KAppMetadataReaderTarvoAdapter>(inputs).reader();
    return host::withHostErrors(
        [&] { return reader.getFileName(); },
        [&] { return toOutputs(reader.readScreenshotAsBytes(), outputCount); });
}

}  // namespace appserialization
